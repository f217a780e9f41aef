#include <array>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

#include "fakes.h"
#include "no_memory.h"
#include "timing_text.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

namespace {

using fakes::takeLog;
using Lines = std::vector<std::string>;

// A new structure, added to the one that it belongs to.
void* added(int32_t (*init)(void** hdl), int32_t (*add)(void* hdl, void* part), void* hdl) {
    void* part = nullptr;
    EXPECT_EQ(init(&part), 0);
    EXPECT_EQ(add(hdl, part), 0);
    return part;
}

GBSPATIS_HANDLE addSection(GBSPAT_HANDLE spat) {
    return added(v2xapp_GBMsgSPATSectionInit, v2xapp_GBMsgSPATSectionAdd, spat);
}

GBSPATISPHASE_HANDLE addPhase(GBSPATIS_HANDLE section) {
    return added(v2xapp_GBMsgSPATSectionPhaseInit, v2xapp_GBMsgSPATSectionPhaseAdd, section);
}

GBSPATISPHASESTATE_HANDLE addState(GBSPATISPHASE_HANDLE phase) {
    return added(v2xapp_GBMsgSPATSectionPhaseStateInit, v2xapp_GBMsgSPATSectionPhaseStateAdd, phase);
}

// A frame with one intersection, one phase and one state, each added to the next at once.
class Builder : public testing::Test {
protected:
    Builder() {
        EXPECT_EQ(v2xapp_GBMsgSPATInit(&frame, &spatHdl), 0);
        section = addSection(spatHdl);
        phase = addPhase(section);
        state = addState(phase);
    }
    ~Builder() override { v2xcodec_freeStrcut(&frame); }
    SPAT_t& spat() { return static_cast<MessageFrame_t*>(frame)->choice.spatFrame; }
    IntersectionState_t& intersection() { return *spat().intersections.list.array[0]; }
    Phase_t& onlyPhase() { return *intersection().phases.list.array[0]; }
    PhaseState_t& onlyState() { return *onlyPhase().phaseStates.list.array[0]; }

    GBMSG_HANDLE frame = nullptr;
    GBSPAT_HANDLE spatHdl = nullptr;
    GBSPATIS_HANDLE section = nullptr;
    GBSPATISPHASE_HANDLE phase = nullptr;
    GBSPATISPHASESTATE_HANDLE state = nullptr;
};

TEST_F(Builder, MessageCountStartsOverAfter127) {
    EXPECT_EQ(getSPATMsgCnt(nullptr), -1); // counts nothing
    for (int round = 0; round < 2; round++) {
        for (long count = round == 0 ? 1 : 0; count <= 127; count++) {
            EXPECT_EQ(getSPATMsgCnt(spatHdl), 0);
            ASSERT_EQ(spat().msgCnt, count);
        }
    }
}

TEST_F(Builder, ThreadsShareTheMessageCount) {
    std::array<std::array<int, 128>, 4> drawn = {};
    std::vector<std::thread> threads;
    threads.reserve(drawn.size());
    for (auto& mine : drawn) {
        threads.emplace_back([&mine] {
            SPAT_t own = {};
            for (int i = 0; i < 64 * 10; i++) {
                getSPATMsgCnt(&own);
                mine.at(static_cast<size_t>(own.msgCnt))++;
            }
        });
    }
    for (std::thread& thread : threads) {
        thread.join();
    }
    for (size_t count = 0; count < 128; count++) {
        EXPECT_EQ(drawn[0][count] + drawn[1][count] + drawn[2][count] + drawn[3][count], 20) << count;
    }
}

// A number that an operation stores, or takes away where it is null.
template <typename T>
struct Step {
    std::optional<T> value;
    std::string stored;
    int32_t result;
    Lines log;
    Step(std::optional<T> value_, std::string stored_, int32_t result_ = 0, Lines log_ = {})
        : value(value_), stored(std::move(stored_)), result(result_), log(std::move(log_)) {}
};

template <typename T>
void expectSteps(int32_t (*operation)(void* hdl, T* value), void* hdl, long* const& member,
                 const std::vector<Step<T>>& steps) {
    for (Step<T> step : steps) {
        EXPECT_EQ(operation(hdl, step.value.has_value() ? &*step.value : nullptr), step.result) << step.stored;
        EXPECT_EQ(text(member), step.stored);
        EXPECT_EQ(takeLog(), step.log);
    }
}

TEST_F(Builder, OptionalNumbers) {
    const std::vector<Step<int32_t>> minutes = {
        {527041, "-"},       {-1, "-"},           {0, "0"},           {527040, "527040"}, {527039, "527039"},
        {-1, "527040"},      {91474, "91474"},    {527041, "527040"}, {5, "5"},           {INT32_MIN, "527040"},
        {std::nullopt, "-"}, {std::nullopt, "-"}, {INT32_MAX, "-"},
    };
    expectSteps(v2xapp_GBMsgSPATMoy, spatHdl, spat().moy, minutes);
    expectSteps(v2xapp_GBMsgSPATSectionMoy, section, intersection().moy, minutes);

    const std::vector<Step<uint64_t>> clocks = {
        {0, "0"},
        {999, "0"},
        {59999999, "59999"},
        {60000000, "0"},
        {UINT64_MAX, "49551"}, // 307445734561 minutes and it
    };
    expectSteps(v2xapp_GBMsgSPATSecmark, spatHdl, spat().timeStamp, clocks);
    expectSteps(v2xapp_GBMsgSPATSectionSecmark, section, intersection().timeStamp, clocks);

    const std::string outOfRange = "GBSM 3 DSecond is out of range(0..65535), curr value = ";
    const std::vector<Step<uint64_t>> stamps = {
        {65535, "65535"},
        {65536, "60000", 0, {outOfRange + "65536"}},
        {UINT64_MAX, "60000", 0, {outOfRange + "-1"}},
    };
    expectSteps<uint64_t>([](void* hdl, uint64_t* value) { return v2xapp_GBMsgSPATSecmark2(hdl, *value); }, spatHdl,
                          spat().timeStamp, stamps);
    expectSteps<uint64_t>([](void* hdl, uint64_t* value) { return v2xapp_GBMsgSPATSectionSecmark2(hdl, *value); },
                          section, intersection().timeStamp, stamps);

    const Lines noConfidence = {"GBSM 2 range out 0..39"};
    expectSteps<int32_t>(
        v2xapp_GBMsgSPATSectionTimeCfd, section, intersection().timeConfidence,
        {{40, "-", -2, noConfidence}, {39, "39"}, {-1, "39", -2, noConfidence}, {0, "0"}, {std::nullopt, "-"}});
}

TEST_F(Builder, Name) {
    char crossing[] = "Crossing 7 with a name of more than sixty-three characters, of which there are a few";
    const struct {
        char* text;
        int32_t len;
        std::optional<std::string> stored;
    } steps[] = {
        {nullptr, 5, std::nullopt},  {crossing, 8, "Crossing"},
        {nullptr, 63, "Crossing"},   {crossing, 10, "Crossing 7"},
        {nullptr, 64, std::nullopt}, {crossing, -1, crossing},
        {nullptr, -1, std::nullopt}, {crossing, 64, std::string(crossing, 64)},
        {crossing, 0, ""},           {nullptr, 0, std::nullopt},
    };
    for (const auto& step : steps) {
        EXPECT_EQ(v2xapp_GBMsgSPATName(spatHdl, step.text, step.len), 0);
        const DescriptiveName_t* name = spat().name;
        ASSERT_EQ(name != nullptr, step.stored.has_value()) << step.len;
        if (name != nullptr) {
            EXPECT_EQ(std::string(name->buf, name->buf + name->size), *step.stored);
        }
    }
}

TEST_F(Builder, Status) {
    const struct {
        int32_t value;
        Bytes octets;
    } cases[] = {{0x0102, {1, 2}}, {0x18004, {0x80, 0x04}}, {0, {0, 0}}, {-2, {0xFF, 0xFE}}};
    for (const auto& row : cases) {
        EXPECT_EQ(v2xapp_GBMsgSPATSectionStatus(section, row.value), 0);
        const BIT_STRING_t& status = intersection().status;
        EXPECT_EQ(Bytes(status.buf, status.buf + status.size), row.octets);
        EXPECT_EQ(status.bits_unused, 0);
    }
}

TEST_F(Builder, PhaseIdAndLightAreKeptOutOfRange) {
    const struct {
        int32_t id;
        int32_t light;
        bool inRange;
    } cases[] = {{0, 0, true}, {255, 8, true}, {256, 9, false}, {-1, -1, false}, {INT32_MIN, INT32_MIN, false}};
    for (const auto& row : cases) {
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseId(phase, row.id), row.inRange ? 0 : -2);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStateLightState(state, row.light), row.inRange ? 0 : -2);
        EXPECT_EQ(onlyPhase().id, row.id);
        EXPECT_EQ(onlyState().light, row.light);
        const Lines log = {"GBSM 3 phase id is out of range(0..255), curr value = " + std::to_string(row.id),
                           "GBSM 3 light is out of range(0..8), curr value = " + std::to_string(row.light)};
        EXPECT_EQ(takeLog(), row.inRange ? Lines() : log);
    }
}

struct Times {
    double start, end, max, min, nextStart, next, confidence;
};

c_phaseState_t input(int8_t mode, const Times& times, bool flags = false) {
    return {mode,  7,     times.start, times.end, flags,           flags,      flags,
            flags, flags, times.max,   times.min, times.nextStart, times.next, times.confidence};
}

TEST_F(Builder, Timing) {
    const double nan = std::nan("");
    const std::string lowest = std::to_string(INT64_MIN);
    const std::string longest = std::to_string(INT64_MAX);
    const std::string lowestAll = lowest + " " + lowest + " - - " + lowest + " " + lowest + " " + lowest;
    const std::string mixed =
        longest + " " + lowest + " " + longest + " " + longest + " " + longest + " " + longest + " " + longest;
    const struct {
        Times times;
        std::string stored[2]; // counting and UTC
        size_t outOfRange[2];  // how many are said to be
    } cases[] = {
        {{0, 12.34, -1, -1, -1, 5, -1}, {"0 123 - - 36001 36001 -", "0 123 - - 36001 50 0"}, {0, 0}},
        {{0.55, 3600.5, 0, 0, 0, 0, 0}, {"5 36005 0 0 0 0 0", "5 36005 0 0 0 0 0"}, {1, 1}},
        {{1, 2, 40.25, 3, 60, 20, 0.75}, {"10 20 402 30 600 200 150", "10 20 402 30 600 200 150"}, {0, 0}},
        {{1, 2, 3, -0.01, -0.01, 20, 1}, {"10 20 30 - 36001 36001 200", "10 20 30 - 36001 200 200"}, {0, 0}},
        {{1, 2, -0.01, 3, 60, -0.05, -0.01}, {"10 20 - 30 600 0 -", "10 20 - 30 600 36001 0"}, {0, 0}},
        {{-0.05, 3600, -0.0, 3, -5, -5, 0.003}, {"0 36000 0 30 36001 36001 0", "0 36000 0 30 36001 36001 0"}, {0, 0}},
        {{-1, -2.5, 0, 0, 0, 0, 1.0075}, {"-10 -25 0 0 0 0 201", "-10 -25 0 0 0 0 201"}, {3, 3}},
        {{0, 0, 0, 0, 0, -1, 0}, {"0 0 0 0 0 -10 0", "0 0 0 0 0 36001 0"}, {1, 0}}, // counting: the start's sign alone
        {{nan, nan, nan, nan, nan, nan, nan}, {lowestAll, lowestAll}, {5, 5}},
        {{HUGE_VAL, -1e300, 1e300, HUGE_VAL, 1e18, HUGE_VAL, 1e300}, {mixed, mixed}, {7, 7}},
    };
    for (const auto& row : cases) {
        for (const int mode : {1, 2}) {
            for (const bool flags : {false, true}) {
                const c_phaseState_t given = input(static_cast<int8_t>(mode), row.times, flags);
                EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, given), 0);
                EXPECT_EQ(timingText(onlyState().timing), (mode == 1 ? "counting " : "utc ") + row.stored[mode - 1]);
                EXPECT_EQ(takeLog().size(), row.outOfRange[mode - 1]) << row.stored[mode - 1];
            }
        }
    }
    EXPECT_EQ(onlyState().light, 0) << "lightState is not looked at";
}

TEST_F(Builder, TimesOutOfRangeAreNamed) {
    const Times times = {3600.25, 4000, 5000, 6000, 7000, 8000, 1.5};
    const auto lines = [](const std::array<const char*, 6>& names) {
        const char* const values[] = {"36002", "40000", "50000", "60000", "70000", "80000"};
        Lines all;
        for (size_t i = 0; i < names.size(); i++) {
            all.push_back(std::string("GBSM 3 ") + names.at(i) +
                          " is out of range(0..36001), curr value = " + values[i]);
        }
        all.emplace_back("GBSM 3 timeConfidence is out of range(0..200), curr value = 300");
        return all;
    };
    v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(1, times));
    EXPECT_EQ(takeLog(),
              lines({"startTime", "likelyEndTime", "maxEndTime", "minEndTime", "nextStartTime", "nextDuration"}));
    v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(2, times));
    EXPECT_EQ(takeLog(), lines({"utcTiming.startUTCTime", "utcTiming.likelyEndUTCTime", "utcTiming.maxEndUTCTime",
                                "utcTiming.minEndUTCTime", "utcTiming.nextStartUTCTime", "utcTiming.nextEndUTCTime"}));
    // Another mode changes nothing.
    for (const int8_t mode : std::to_array<int8_t>({0, 3, -1})) {
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(mode, {})), 0);
        EXPECT_EQ(timingText(onlyState().timing), "utc 36002 40000 50000 60000 70000 80000 300");
    }
}

TEST_F(Builder, WithoutMemoryOperationsSayWhatTheyLack) {
    void* made = nullptr;
    int32_t number = 5;
    const struct {
        std::function<int32_t()> operation;
        int32_t result;
        const char* said;
    } cases[] = {
        {[&] { return v2xapp_GBMsgSPATInit(&made, &made); }, -1, "GBSM 2 malloc memory error!"},
        {[&] { return v2xapp_GBMsgSPATSectionInit(&made); }, -2, "GBSM 2 calloc section err"},
        {[&] { return v2xapp_GBMsgSPATSectionPhaseInit(&made); }, -2, "GBSM 2 calloc section err"},
        {[&] { return v2xapp_GBMsgSPATSectionPhaseStateInit(&made); }, -2, "GBSM 2 calloc section err"},
        {[&] { return v2xapp_GBMsgSPATSectionId(section, 0x00010002); }, -3,
         "GBSM 3 intersectionId.region is out of range(0..65535), curr value = 1"},
        {[&] { return v2xapp_GBMsgSPATSectionTimeCfd(section, &number); }, -3, "GBSM 2 calloc err"},
        {[&] { return v2xapp_GBMsgSPATMoy(spatHdl, &number); }, -3, "GBSM 2 calloc err"},
        {[&] { return v2xapp_GBMsgSPATSecmark2(spatHdl, 5); }, -3, "GBSM 2 calloc err"},
        {[&] { return v2xapp_GBMsgSPATSectionStatus(section, 5); }, -3, "GBSM 2 calloc err"},
        {[&] { return v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(1, {})); }, 0, "GBSM 2 calloc err"},
    };
    for (const auto& row : cases) {
        no_memory::callocs.left = 1;
        EXPECT_EQ(row.operation(), row.result) << row.said;
        EXPECT_EQ(no_memory::callocs.left, 0);
        EXPECT_EQ(takeLog(), Lines{row.said});
    }
    EXPECT_EQ(made, nullptr);
    EXPECT_TRUE(spat().moy == nullptr && spat().timeStamp == nullptr && onlyState().timing == nullptr);
}

TEST_F(Builder, NullHandles) {
    int32_t number = 1;
    uint64_t clock = 1;
    char name[] = "x";
    GBSPAT_HANDLE out = nullptr;
    const std::function<int32_t()> calls[] = {
        [&] { return v2xapp_GBMsgSPATInit(nullptr, &out); },
        [&] { return v2xapp_GBMsgSPATInit(&out, nullptr); },
        [&] { return getSPATMsgCnt(nullptr); },
        [&] { return v2xapp_GBMsgSPATMoy(nullptr, &number); },
        [&] { return v2xapp_GBMsgSPATName(nullptr, name, 1); },
        [&] { return v2xapp_GBMsgSPATSecmark(nullptr, &clock); },
        [&] { return v2xapp_GBMsgSPATSecmark(spatHdl, nullptr); },
        [&] { return v2xapp_GBMsgSPATSecmark2(nullptr, 1); },
        [&] { return v2xapp_GBMsgSPATSectionInit(nullptr); },
        [&] { return v2xapp_GBMsgSPATSectionAdd(nullptr, section); },
        [&] { return v2xapp_GBMsgSPATSectionAdd(spatHdl, nullptr); },
        [&] { return v2xapp_GBMsgSPATSectionId(nullptr, 1); },
        [&] { return v2xapp_GBMsgSPATSectionStatus(nullptr, 1); },
        [&] { return v2xapp_GBMsgSPATSectionMoy(nullptr, &number); },
        [&] { return v2xapp_GBMsgSPATSectionSecmark(nullptr, &clock); },
        [&] { return v2xapp_GBMsgSPATSectionSecmark(section, nullptr); },
        [&] { return v2xapp_GBMsgSPATSectionSecmark2(nullptr, 1); },
        [&] { return v2xapp_GBMsgSPATSectionPhaseInit(nullptr); },
        [&] { return v2xapp_GBMsgSPATSectionPhaseAdd(nullptr, phase); },
        [&] { return v2xapp_GBMsgSPATSectionPhaseAdd(section, nullptr); },
        [&] { return v2xapp_GBMsgSPATSectionPhaseId(nullptr, 1); },
        [&] { return v2xapp_GBMsgSPATSectionPhaseStateInit(nullptr); },
        [&] { return v2xapp_GBMsgSPATSectionPhaseStateAdd(nullptr, state); },
        [&] { return v2xapp_GBMsgSPATSectionPhaseStateAdd(phase, nullptr); },
        [&] { return v2xapp_GBMsgSPATSectionPhaseStateLightState(nullptr, 1); },
        [&] { return v2xapp_GBMsgSPATSectionPhaseStatePhaseState(nullptr, {}); },
    };
    for (const auto& call : calls) {
        EXPECT_EQ(call(), -1) << &call - calls;
        EXPECT_EQ(takeLog(), Lines{"GBSM 2 input err"}) << &call - calls;
    }
    EXPECT_EQ(v2xapp_GBMsgSPATSectionTimeCfd(nullptr, &number), 0); // the one exception
    EXPECT_EQ(takeLog(), Lines{"GBSM 2 input err"});
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(spat().intersections.list.count, 1);
    EXPECT_EQ(intersection().phases.list.count, 1);
    EXPECT_EQ(onlyPhase().phaseStates.list.count, 1);
}

// By an independent encoder: SPAT 1, minute 527040, ms 59999, "Crossing 7"; the intersection 1/2 with status 8104,
// minute 91474, ms 1500, confidence 12 and phases 1 (red: counting 0, 100..150, 123, confidence 100, next unknown;
// protected green: counting 5, 36000, next 300 for 250) and 255 (yellow: UTC 12000, 12100..12300, 12200, confidence 0,
// next 12600 to unknown; flashing yellow without timing); and the intersection 65535/65535 of ms 60000 with phase 0,
// unavailable.
TEST_F(Builder, WholeMessage) {
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
    v2xapp_GBMsgSPATSectionId(section, 0x00010002);
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

    const GBSPATIS_HANDLE last = addSection(spatHdl);
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
