#include <array>
#include <cmath>
#include <functional>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

#include "fakes.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

namespace {

// The lines logged since the last call, as "level text".
std::vector<std::string> takeLog() {
    std::vector<std::string> lines;
    for (const fakes::LogLine& line : fakes::logLines) {
        EXPECT_EQ(line.tag, "GBSM");
        lines.push_back(std::to_string(line.level) + " " + line.text);
    }
    fakes::logLines.clear();
    return lines;
}
using Lines = std::vector<std::string>;

std::string text(const long* member) {
    return member == nullptr ? "-" : std::to_string(*member);
}

// A frame with one intersection, one phase and one state, each added to the next at once.
class Builder : public testing::Test {
protected:
    Builder() {
        EXPECT_EQ(v2xapp_GBMsgSPATInit(&frame, &spatHdl), 0);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionInit(&section), 0);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionAdd(spatHdl, section), 0);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseInit(&phase), 0);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseAdd(section, phase), 0);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStateInit(&state), 0);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStateAdd(phase, state), 0);
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

TEST_F(Builder, MinuteOfTheYear) {
    const struct {
        std::optional<int32_t> moy;
        std::string stored;
    } steps[] = {
        {527041, "-"},       {-1, "-"},           {0, "0"},           {527040, "527040"}, {527039, "527039"},
        {-1, "527040"},      {91474, "91474"},    {527041, "527040"}, {5, "5"},           {INT32_MIN, "527040"},
        {std::nullopt, "-"}, {std::nullopt, "-"}, {INT32_MAX, "-"},
    };
    for (const auto& step : steps) {
        std::optional<int32_t> moy = step.moy;
        int32_t* value = moy.has_value() ? &*moy : nullptr;
        EXPECT_EQ(v2xapp_GBMsgSPATMoy(spatHdl, value), 0);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionMoy(section, value), 0);
        EXPECT_EQ(text(spat().moy), step.stored);
        EXPECT_EQ(text(intersection().moy), step.stored);
    }
    EXPECT_EQ(takeLog(), Lines());
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

TEST_F(Builder, TimeStampFromAClock) {
    const struct {
        uint64_t now;
        std::string stored;
    } cases[] = {
        {0, "0"},
        {999, "0"},
        {59999999, "59999"},
        {60000000, "0"},
        {UINT64_MAX, "49551"}, // 307445734561 minutes and this
    };
    for (const auto& row : cases) {
        uint64_t now = row.now;
        EXPECT_EQ(v2xapp_GBMsgSPATSecmark(spatHdl, &now), 0);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionSecmark(section, &now), 0);
        EXPECT_EQ(text(spat().timeStamp), row.stored);
        EXPECT_EQ(text(intersection().timeStamp), row.stored);
    }
    EXPECT_EQ(takeLog(), Lines());
}

TEST_F(Builder, TimeStampAsGiven) {
    const std::string outOfRange = "3 DSecond is out of range(0..65535), curr value = ";
    const struct {
        uint64_t value;
        std::string stored;
        Lines log;
    } cases[] = {
        {65535, "65535", {}},
        {65536, "60000", {outOfRange + "65536"}},
        {UINT64_MAX, "60000", {outOfRange + "-1"}},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(v2xapp_GBMsgSPATSecmark2(spatHdl, row.value), 0);
        EXPECT_EQ(takeLog(), row.log);
        EXPECT_EQ(v2xapp_GBMsgSPATSectionSecmark2(section, row.value), 0);
        EXPECT_EQ(takeLog(), row.log);
        EXPECT_EQ(text(spat().timeStamp), row.stored);
        EXPECT_EQ(text(intersection().timeStamp), row.stored);
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

TEST_F(Builder, TimeConfidence) {
    const Lines outOfRange = {"2 range out 0..39"};
    const struct {
        std::optional<int32_t> value;
        int32_t result;
        std::string stored;
        Lines log;
    } steps[] = {
        {40, -2, "-", outOfRange}, {39, 0, "39", {}},          {-1, -2, "39", outOfRange},
        {0, 0, "0", {}},           {std::nullopt, 0, "-", {}},
    };
    for (const auto& step : steps) {
        std::optional<int32_t> value = step.value;
        EXPECT_EQ(v2xapp_GBMsgSPATSectionTimeCfd(section, value.has_value() ? &*value : nullptr), step.result);
        EXPECT_EQ(text(intersection().timeConfidence), step.stored);
        EXPECT_EQ(takeLog(), step.log);
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
        const Lines log = {"3 phase id is out of range(0..255), curr value = " + std::to_string(row.id),
                           "3 light is out of range(0..8), curr value = " + std::to_string(row.light)};
        EXPECT_EQ(takeLog(), row.inRange ? Lines() : log);
    }
}

// A timing's mode and elements: start, likely end, latest end, earliest end, next start, next duration or end,
// confidence.
std::string timing(const PhaseState_t& state) {
    if (state.timing == nullptr) {
        return "none";
    }
    const auto join = [](const char* mode, auto... members) { return (mode + ... + (" " + text(members))); };
    if (state.timing->present == TimeChangeDetails_PR_counting) {
        const TimeCountingDown_t& t = state.timing->choice.counting;
        return join("counting", &t.startTime, &t.likelyEndTime, t.maxEndTime, t.minEndTime, t.nextStartTime,
                    t.nextDuration, t.timeConfidence);
    }
    const UTCTiming_t& t = state.timing->choice.utcTiming;
    return join("utc", &t.startUTCTime, &t.likelyEndUTCTime, t.maxEndUTCTime, t.minEndUTCTime, t.nextStartUTCTime,
                t.nextEndUTCTime, t.timeConfidence);
}

struct Times {
    double start, end, max, min, nextStart, next, confidence;
};

c_phaseState_t input(int8_t mode, const Times& times, bool flags = false) {
    return {mode,  7,     times.start, times.end, flags,           flags,      flags,
            flags, flags, times.max,   times.min, times.nextStart, times.next, times.confidence};
}

TEST_F(Builder, Timing) {
    const struct {
        Times times;
        std::string counting;
        std::string utc;
    } cases[] = {
        {{0, 12.34, -1, -1, -1, 5, -1}, "0 123 - - 36001 36001 -", "0 123 - - 36001 50 0"},
        {{0.55, 3600.5, 0, 0, 0, 0, 0}, "5 36005 0 0 0 0 0", "5 36005 0 0 0 0 0"},
        {{1, 2, 40.25, 3, 60, 20, 0.75}, "10 20 402 30 600 200 150", "10 20 402 30 600 200 150"},
        {{1, 2, 3, -0.01, -0.01, 20, 1}, "10 20 30 - 36001 36001 200", "10 20 30 - 36001 200 200"},
        {{1, 2, -0.01, 3, 60, -0.05, -0.01}, "10 20 - 30 600 0 -", "10 20 - 30 600 36001 0"},
        {{-0.05, 3600, -0.0, 3, -5, -5, 0.003}, "0 36000 0 30 36001 36001 0", "0 36000 0 30 36001 36001 0"},
    };
    for (const auto& row : cases) {
        for (const bool flags : {false, true}) {
            EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(1, row.times, flags)), 0);
            EXPECT_EQ(timing(onlyState()), "counting " + row.counting);
            EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(2, row.times, flags)), 0);
            EXPECT_EQ(timing(onlyState()), "utc " + row.utc);
        }
    }
    EXPECT_EQ(onlyState().light, 0) << "lightState is not looked at";
}

TEST_F(Builder, AnotherModeGetsNoTiming) {
    for (const int8_t mode : std::to_array<int8_t>({0, 3, -1})) {
        EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(mode, {1, 2, 3, 4, 5, 6, 1})), 0);
        EXPECT_EQ(timing(onlyState()), "none");
    }
    v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(1, {1, 2, 3, 4, 5, 6, 1}));
    EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(3, {9, 9, 9, 9, 9, 9, 0})), 0);
    EXPECT_EQ(timing(onlyState()), "counting 10 20 30 40 50 60 200");
    EXPECT_EQ(takeLog(), Lines());
}

TEST_F(Builder, TimesOutOfRangeAreLoggedAndKept) {
    const double nan = std::nan("");
    const std::string lowest = std::to_string(INT64_MIN);
    const std::string longest = std::to_string(INT64_MAX);
    const struct {
        Times times;
        std::string stored;              // in both modes
        std::array<std::string, 7> curr; // as logged; empty where nothing is
    } cases[] = {
        {{3600.25, 4000, 5000, 6000, 7000, 8000, 1.5},
         "36002 40000 50000 60000 70000 80000 300",
         {"36002", "40000", "50000", "60000", "70000", "80000", "300"}},
        {{-1, -2.5, 0, 0, 0, 0, 1.0075}, "-10 -25 0 0 0 0 201", {"-10", "-25", "", "", "", "", "201"}},
        {{nan, nan, nan, nan, nan, nan, nan},
         lowest + " " + lowest + " - - " + lowest + " " + lowest + " " + lowest,
         {lowest, lowest, "", "", lowest, lowest, lowest}},
        {{HUGE_VAL, -1e300, 1e300, HUGE_VAL, 1e18, HUGE_VAL, 1e300},
         longest + " " + lowest + " " + longest + " " + longest + " " + longest + " " + longest + " " + longest,
         {longest, lowest, longest, longest, longest, longest, longest}},
    };
    const std::array<std::string, 6> names[] = {
        {"startTime", "likelyEndTime", "maxEndTime", "minEndTime", "nextStartTime", "nextDuration"},
        {"utcTiming.startUTCTime", "utcTiming.likelyEndUTCTime", "utcTiming.maxEndUTCTime", "utcTiming.minEndUTCTime",
         "utcTiming.nextStartUTCTime", "utcTiming.nextEndUTCTime"},
    };
    for (const auto& row : cases) {
        for (const int8_t mode : std::to_array<int8_t>({1, 2})) {
            EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(mode, row.times)), 0);
            EXPECT_EQ(timing(onlyState()), (mode == 1 ? "counting " : "utc ") + row.stored);
            Lines expected;
            for (size_t i = 0; i < 6; i++) {
                if (!row.curr[i].empty()) {
                    expected.push_back("3 " + names[mode - 1][i] +
                                       " is out of range(0..36001), curr value = " + row.curr[i]);
                }
            }
            expected.push_back("3 timeConfidence is out of range(0..200), curr value = " + row.curr[6]);
            EXPECT_EQ(takeLog(), expected);
        }
    }
    // Mode 1 looks at the next start alone: a negative duration beside a known one is a value like others.
    v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, input(1, {0, 0, 0, 0, 0, -1, 0}));
    EXPECT_EQ(timing(onlyState()), "counting 0 0 0 0 0 -10 0");
    EXPECT_EQ(takeLog(), Lines{"3 nextDuration is out of range(0..36001), curr value = -10"});
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
        EXPECT_EQ(takeLog(), Lines{"2 input err"}) << &call - calls;
    }
    EXPECT_EQ(v2xapp_GBMsgSPATSectionTimeCfd(nullptr, &number), 0); // the one exception
    EXPECT_EQ(takeLog(), Lines{"2 input err"});
    EXPECT_EQ(out, nullptr);
    EXPECT_EQ(spat().intersections.list.count, 1);
    EXPECT_EQ(intersection().phases.list.count, 1);
    EXPECT_EQ(onlyPhase().phaseStates.list.count, 1);
}

// ---- whole messages, against an independent encoder

void addState(GBSPATISPHASE_HANDLE phase, int32_t light, const c_phaseState_t& times) {
    GBSPATISPHASESTATE_HANDLE state = nullptr;
    EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStateInit(&state), 0);
    EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStateLightState(state, light), 0);
    EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, times), 0);
    EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseStateAdd(phase, state), 0);
}

GBSPATISPHASE_HANDLE addPhase(GBSPATIS_HANDLE section, int32_t id) {
    GBSPATISPHASE_HANDLE phase = nullptr;
    EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseInit(&phase), 0);
    EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseId(phase, id), 0);
    EXPECT_EQ(v2xapp_GBMsgSPATSectionPhaseAdd(section, phase), 0);
    return phase;
}

GBSPATIS_HANDLE addSection(GBSPAT_HANDLE spat, uint32_t id, int32_t status) {
    GBSPATIS_HANDLE section = nullptr;
    EXPECT_EQ(v2xapp_GBMsgSPATSectionInit(&section), 0);
    EXPECT_EQ(v2xapp_GBMsgSPATSectionId(section, id), 0);
    EXPECT_EQ(v2xapp_GBMsgSPATSectionStatus(section, status), 0);
    EXPECT_EQ(v2xapp_GBMsgSPATSectionAdd(spat, section), 0);
    return section;
}

Bytes encode(GBMSG_HANDLE frame) {
    Bytes bytes(1000);
    int16_t size = 0;
    EXPECT_EQ(v2xcodec_uperEnc(frame, bytes.data(), static_cast<int32_t>(bytes.size()), &size), 0);
    bytes.resize(static_cast<size_t>(size));
    return bytes;
}

// SPAT 1, minute 527040, ms 59999, "Crossing 7"; the intersection 1/2 with status 8104, minute 91474, ms 1500,
// confidence 12 and phases 1 (red: counting 0, 100..150, 123, confidence 100, next unknown; protected green: counting
// 5, 36000, next 300 for 250) and 255 (yellow: UTC 12000, 12100..12300, 12200, confidence 0, next 12600 to unknown;
// flashing yellow without timing); and the intersection of the test above.
TEST(Message, WholeEncodesDecodesAndCompares) {
    GBMSG_HANDLE frame = nullptr;
    GBSPAT_HANDLE spat = nullptr;
    ASSERT_EQ(v2xapp_GBMsgSPATInit(&frame, &spat), 0);
    getSPATMsgCnt(spat);
    int32_t moy = 527040;
    uint64_t now = 119999999;
    char name[] = "Crossing 7";
    v2xapp_GBMsgSPATMoy(spat, &moy);
    v2xapp_GBMsgSPATSecmark(spat, &now);
    v2xapp_GBMsgSPATName(spat, name, -1);

    const GBSPATIS_HANDLE section = addSection(spat, 0x00010002, 0x8104);
    moy = 91474;
    now = 61500000;
    int32_t confidence = 12;
    v2xapp_GBMsgSPATSectionMoy(section, &moy);
    v2xapp_GBMsgSPATSectionSecmark(section, &now);
    v2xapp_GBMsgSPATSectionTimeCfd(section, &confidence);
    GBSPATISPHASE_HANDLE phase = addPhase(section, 1);
    addState(phase, 3, input(1, {0, 12.34, 15, 10, -1, 5, 0.5}));
    addState(phase, 6, input(1, {0.5, 3600, -1, -1, 30, 25, -1}));
    phase = addPhase(section, 255);
    addState(phase, 7, input(2, {1200, 1220, 1230, 1210, 1260, -1, -1}));
    addState(phase, 8, input(0, {}));

    const GBSPATIS_HANDLE second = addSection(spat, 0xFFFFFFFF, 0);
    v2xapp_GBMsgSPATSectionSecmark2(second, 60000);
    addState(addPhase(second, 0), 0, input(0, {}));

    Bytes bytes = encode(frame);
    EXPECT_EQ(bytes, hex("370301581D4BE4C3E5BF9F3D3BB3A06E178000800140820B2A902EE1820228CF80000032004B003DB24650C650"
                         "A606000B1940025801F5FE29DF977017A2180617D400189C4650882FFFFFFFF800075300000000"));
    ASNSTRUCT_HANDLE decoded = nullptr;
    ASSERT_EQ(v2xcodec_uperDec(&decoded, bytes.data(), static_cast<int16_t>(bytes.size())), 0);
    const SPAT_t& result = static_cast<MessageFrame_t*>(decoded)->choice.spatFrame;
    ASSERT_EQ(result.intersections.list.count, 2);
    const IntersectionState_t& first = *result.intersections.list.array[0];
    ASSERT_EQ(first.phases.list.count, 2);
    const auto& states = first.phases.list.array[0]->phaseStates.list;
    EXPECT_EQ(timing(*states.array[0]), "counting 0 123 150 100 36001 36001 100");
    EXPECT_EQ(timing(*states.array[1]), "counting 5 36000 - - 300 250 -");
    EXPECT_EQ(timing(*first.phases.list.array[1]->phaseStates.list.array[0]),
              "utc 12000 12200 12300 12100 12600 36001 0");
    EXPECT_EQ(encode(decoded), bytes);
    v2xcodec_freeStrcut(&decoded);
    v2xcodec_freeStrcut(&frame);
}

} // namespace
