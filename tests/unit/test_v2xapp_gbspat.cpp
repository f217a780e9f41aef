#include <cmath>
#include <gtest/gtest.h>
#include <optional>

#include "bytes.h"
#include "codec_log.h"
#include "timing_text.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

namespace {

using codec_log::takeLog;

// Makes a structure and adds it to its parent.
void* added(int32_t (*init)(void** hdl), int32_t (*add)(void* parent, void* hdl), void* parent) {
    void* hdl = nullptr;
    EXPECT_EQ(init(&hdl), 0);
    EXPECT_EQ(add(parent, hdl), 0);
    return hdl;
}

GBSPATISPHASE_HANDLE addPhase(GBSPATIS_HANDLE section) {
    return added(v2xapp_GBMsgSPATSectionPhaseInit, v2xapp_GBMsgSPATSectionPhaseAdd, section);
}

GBSPATISPHASESTATE_HANDLE addState(GBSPATISPHASE_HANDLE phase) {
    return added(v2xapp_GBMsgSPATSectionPhaseStateInit, v2xapp_GBMsgSPATSectionPhaseStateAdd, phase);
}

// A frame with one intersection, one phase and one state. The next message count is 1.
class Builder : public testing::Test {
protected:
    Builder() {
        EXPECT_EQ(v2xapp_GBMsgSPATInit(&frame, &spatHdl), 0);
        section = added(v2xapp_GBMsgSPATSectionInit, v2xapp_GBMsgSPATSectionAdd, spatHdl);
        phase = addPhase(section);
        state = addState(phase);
        do {
            getSPATMsgCnt(spatHdl);
        } while (spat().msgCnt != 0);
        takeLog();
    }
    ~Builder() override { v2xcodec_freeStrcut(&frame); }
    SPAT_t& spat() { return *static_cast<SPAT_t*>(spatHdl); }
    IntersectionState_t& intersection() { return *spat().intersections.list.array[0]; }
    Phase_t& onlyPhase() { return *intersection().phases.list.array[0]; }
    PhaseState_t& onlyState() { return *onlyPhase().phaseStates.list.array[0]; }

    GBMSG_HANDLE frame = nullptr;
    GBSPAT_HANDLE spatHdl = nullptr;
    GBSPATIS_HANDLE section = nullptr;
    GBSPATISPHASE_HANDLE phase = nullptr;
    GBSPATISPHASESTATE_HANDLE state = nullptr;
};

TEST_F(Builder, MessageCountWrapsAfter127) {
    for (long i = 1; i <= 300; i++) {
        EXPECT_EQ(getSPATMsgCnt(spatHdl), 0);
        ASSERT_EQ(spat().msgCnt, i % 128);
    }
}

// Sets the member to each value in turn, null for none. Returns what is stored after each step, and non-zero results.
template <typename T>
std::string stored(int32_t (*set)(void* hdl, T* value), void* hdl, long* const& member,
                   std::vector<std::optional<T>> values) {
    std::string all;
    for (std::optional<T>& value : values) {
        const int32_t result = set(hdl, value.has_value() ? &*value : nullptr);
        all += " " + text(member) + (result == 0 ? "" : "(" + std::to_string(result) + ")");
    }
    return all;
}

TEST_F(Builder, ChecksRangesOfOptionalNumbers) {
    EXPECT_EQ(stored<int32_t>(v2xapp_GBMsgSPATMoy, spatHdl, spat().moy, {527041, 0, 527040, 91474, -1, {}, -1}),
              " - 0 527040 91474 527040 - -");
    // UINT64_MAX is 307445734561 minutes and 49551 ms.
    EXPECT_EQ(
        stored<uint64_t>(v2xapp_GBMsgSPATSecmark, spatHdl, spat().timeStamp, {999, 59999999, 60000000, UINT64_MAX}),
        " 0 59999 0 49551");
    const auto setMilliseconds = [](void* hdl, uint64_t* value) { return v2xapp_GBMsgSPATSecmark2(hdl, *value); };
    EXPECT_EQ(stored<uint64_t>(setMilliseconds, spatHdl, spat().timeStamp, {65535, 65536, UINT64_MAX}),
              " 65535 60000 60000");
    long*& confidence = intersection().timeConfidence;
    EXPECT_EQ(stored<int32_t>(v2xapp_GBMsgSPATSectionTimeCfd, section, confidence, {40, 39, -1, {}}),
              " -(-2) 39 39(-2) -");
}

TEST_F(Builder, StoresAndRemovesName) {
    std::string crossing = "Crossing 7 with a name of more than sixty-three characters, of which there are a few";
    const auto nameAfter = [this](char* text, int32_t len) -> std::string {
        EXPECT_EQ(v2xapp_GBMsgSPATName(spatHdl, text, len), 0);
        const DescriptiveName_t* name = spat().name;
        return name == nullptr ? "absent" : std::string(name->buf, name->buf + name->size);
    };
    EXPECT_EQ(nameAfter(crossing.data(), 8), "Crossing");
    EXPECT_EQ(nameAfter(nullptr, 63), "Crossing");
    EXPECT_EQ(nameAfter(crossing.data(), -1), crossing);
    EXPECT_EQ(nameAfter(nullptr, 64), "absent");
    EXPECT_EQ(nameAfter(crossing.data(), 0), "");
    EXPECT_EQ(nameAfter(nullptr, 0), "absent");
}

struct Times {
    double start, end, max, min, nextStart, next, confidence;
};

// Sets each flag to the opposite of its meaning, because the builder ignores them.
c_phaseState_t input(int8_t mode, const Times& t) {
    return {mode,  7,     t.start,     t.end,  t.max < 0,   t.min < 0, t.nextStart < 0, t.next < 0, t.confidence < 0,
            t.max, t.min, t.nextStart, t.next, t.confidence};
}

TEST_F(Builder, ConvertsTimingAndIgnoresUnknownModes) {
    const double nan = std::nan("");
    const std::string lowest = " " + std::to_string(INT64_MIN);
    const std::string extremes = std::to_string(INT64_MAX) + lowest + " - -" + lowest + lowest + lowest;
    const struct {
        Times times;
        std::string stored[2];    // counting and UTC
        size_t outOfRangeLogs[2]; // counting and UTC
    } cases[] = {
        {{0, 12.34, -1, -1, -1, 5, -1}, {"0 123 - - 36001 36001 -", "0 123 - - 36001 50 0"}, {0, 0}},
        {{1, 2, 3, -0.01, -0.01, 20, 1}, {"10 20 30 - 36001 36001 200", "10 20 30 - 36001 200 200"}, {0, 0}},
        {{-0.05, 3600, -0.0, 3, -5, -5, 0.003}, {"0 36000 0 30 36001 36001 0", "0 36000 0 30 36001 36001 0"}, {0, 0}},
        {{-1, -2.5, 0, 0, 0, 0, 1.0075}, {"-10 -25 0 0 0 0 201", "-10 -25 0 0 0 0 201"}, {3, 3}},
        {{0, 0, 0, 0, 0, -1, 0}, {"0 0 0 0 0 -10 0", "0 0 0 0 0 36001 0"}, {1, 0}},
        {{HUGE_VAL, -1e300, nan, nan, nan, nan, nan}, {extremes, extremes}, {5, 5}},
    };
    for (const auto& row : cases) {
        for (const int mode : {1, 2}) {
            const c_phaseState_t given = input(static_cast<int8_t>(mode), row.times);
            EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, given), 0);
            EXPECT_EQ(timingText(onlyState().timing), (mode == 1 ? "counting " : "utc ") + row.stored[mode - 1]);
            EXPECT_EQ(takeLog().size(), row.outOfRangeLogs[mode - 1]) << row.stored[mode - 1];
        }
    }
    for (const int mode : {0, 3, -1}) {
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(static_cast<int8_t>(mode), {})), 0);
        EXPECT_EQ(timingText(onlyState().timing), "utc " + extremes);
    }
    EXPECT_EQ(onlyState().light, 0) << "lightState is ignored";
}

// The expected bytes come from an independent encoder. They hold SPAT 1, minute 527040, ms 59999, "Crossing 7", and two
// intersections. The first is 1/2 with status 8104, minute 91474, ms 1500, confidence 12 and two phases:
// - phase 1: red, counting 0, 100..150, 123, confidence 100, next unknown;
//   then protected green, counting 5, 36000, next 300 for 250;
// - phase 255: yellow, UTC 12000, 12100..12300, 12200, confidence 0, next 12600 to unknown;
//   then flashing yellow without timing.
// The second is 65535/65535 with ms 60000 and phase 0, unavailable.
TEST_F(Builder, BuildsWholeMessage) {
    getSPATMsgCnt(spatHdl);
    int32_t moy = 527040;
    uint64_t now = 119999999;
    char name[] = "Crossing 7";
    v2xapp_GBMsgSPATMoy(spatHdl, &moy);
    v2xapp_GBMsgSPATSecmark(spatHdl, &now);
    v2xapp_GBMsgSPATName(spatHdl, name, -1);

    moy = 91474;
    now = 61500000;
    int32_t confidence = 12;
    EXPECT_EQ(v2xapp_GBMsgSPATSectionId(section, 0x00010002), 0);
    v2xapp_GBMsgSPATSectionStatus(section, 0x8104);
    v2xapp_GBMsgSPATSectionMoy(section, &moy);
    v2xapp_GBMsgSPATSectionSecmark(section, &now);
    v2xapp_GBMsgSPATSectionTimeCfd(section, &confidence);
    const auto set = [](GBSPATISPHASESTATE_HANDLE hdl, int32_t light, const c_phaseState_t& times) {
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStateLightState(hdl, light), 0);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(hdl, times), 0);
    };
    v2xapp_GBMsgSPATSectionPhaseId(phase, 1);
    set(state, 3, input(1, {0, 12.34, 15, 10, -1, 5, 0.5}));
    set(addState(phase), 6, input(1, {0.5, 3600, -1, -1, 30, 25, -1}));
    const GBSPATISPHASE_HANDLE second = addPhase(section);
    v2xapp_GBMsgSPATSectionPhaseId(second, 255);
    set(addState(second), 7, input(2, {1200, 1220, 1230, 1210, 1260, -1, -1}));
    set(addState(second), 8, input(0, {}));

    const GBSPATIS_HANDLE last = added(v2xapp_GBMsgSPATSectionInit, v2xapp_GBMsgSPATSectionAdd, spatHdl);
    v2xapp_GBMsgSPATSectionId(last, 0xFFFFFFFF);
    v2xapp_GBMsgSPATSectionStatus(last, 0);
    v2xapp_GBMsgSPATSectionSecmark2(last, 60000);
    set(addState(addPhase(last)), 0, input(0, {}));

    Bytes bytes(1000);
    int16_t size = 0;
    EXPECT_EQ(v2xcodec_uperEnc(frame, bytes.data(), static_cast<int32_t>(bytes.size()), &size), 0);
    bytes.resize(static_cast<size_t>(size));
    EXPECT_EQ(bytes, hex("370301581D4BE4C3E5BF9F3D3BB3A06E178000800140820B2A902EE1820228CF80000032004B003DB24650C650"
                         "A606000B1940025801F5FE29DF977017A2180617D400189C4650882FFFFFFFF800075300000000"));
}

} // namespace
