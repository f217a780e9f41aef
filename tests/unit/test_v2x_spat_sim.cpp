#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <cmath>
#include <map>
#include <set>
#include <sstream>

#include "bytes.h"
#include "damage.h"
#include "endpoint.h"
#include "ipc_print.h"
#include "ipc_record.h"
#include "plan.h"
#include "replay.h"
#include "report.h"
#include "source.h"
#include "summary.h"

using namespace sim;
using testing::ElementsAre;
using testing::HasSubstr;
using namespace std::chrono_literals;

namespace {

// ---- plan

// Every phase counts down second by second to its own next change, found by looking ahead, and the colours follow one
// another as lamps do.
TEST(Plan, CountsDownToTheNextChange) {
    constexpr auto step = 50ms;
    const auto lights = [&](int at, size_t phase) { return PlanAt(at * step, {})[phase]; };
    const int steps = static_cast<int>(PlanCycle() / step);
    const std::map<Colour, Colour> after = {
        {Colour::green, Colour::yellow}, {Colour::yellow, Colour::red}, {Colour::red, Colour::green}};
    for (size_t phase = 0; phase < 8; ++phase) {
        std::map<Colour, int> changes;
        int change = 3 * steps;
        for (int at = 3 * steps - 1; at >= 0; --at) {
            const PhaseLight light = lights(at, phase);
            const Colour next = lights(at + 1, phase).colour;
            if (light.colour != next) {
                change = at + 1;
                ++changes[light.colour];
                ASSERT_EQ(next, after.at(light.colour)) << "phase " << phase << " at " << at;
                ASSERT_EQ((change * step) % 1s, 0ms);
            }
            if (at < 2 * steps) {
                ASSERT_EQ(light.secondsLeft, std::ceil((change - at) * 0.05)) << "phase " << phase << " at " << at;
            }
        }
        EXPECT_EQ(changes, (std::map<Colour, int>{{Colour::green, 3}, {Colour::yellow, 3}, {Colour::red, 3}}));
    }
}

TEST(Plan, LetsOnlyOppositeArmsGoAndClearsBetween) {
    const std::set<std::set<int>> together = {{1, 3}, {5, 7}, {2, 4}, {6, 8}};
    std::map<std::set<int>, std::map<Colour, std::chrono::milliseconds>> times;
    for (auto at = 0ms; at < PlanCycle(); at += 50ms) {
        std::set<int> going;
        Colour colour = Colour::red;
        for (const PhaseLight& light : PlanAt(at, {})) {
            if (light.colour != Colour::red) {
                going.insert(light.phase);
                ASSERT_TRUE(colour == Colour::red || colour == light.colour);
                colour = light.colour;
            }
        }
        ASSERT_TRUE(going.empty() || together.contains(going)) << "at " << at.count() << " ms";
        times[going][colour] += 50ms;
    }
    EXPECT_EQ(times.size(), 5U);
    for (const auto& stage : together) {
        EXPECT_EQ(times[stage][Colour::yellow], 3s);
        EXPECT_GE(times[stage][Colour::green], 5s);
    }
    EXPECT_EQ(times[{}][Colour::red], 4 * 2s);
}

TEST(Plan, RepeatsTheMovementsUnderFurtherNumbers) {
    const auto all = PlanAt(40s, {});
    const auto many = PlanAt(40s, {220, 36});
    ASSERT_EQ(many.size(), 36U);
    for (size_t index = 0; index < many.size(); ++index) {
        EXPECT_EQ(many[index].phase, 220 + index);
        EXPECT_EQ(many[index].colour, all[index % 8].colour);
        EXPECT_EQ(many[index].secondsLeft, all[index % 8].secondsLeft);
    }
    EXPECT_EQ(PlanText(PlanAt(25s, {3, 2})), "3 G2   4 R25");
}

// ---- report and damage

const Bytes ONE_PHASE = hex("FE FE 10 00 0A 00 01 00 03 01 0F 00 00 00 00");

TEST(Report, IsEncodedByteForByte) {
    EXPECT_EQ(EncodeReport(std::vector<PhaseLight>{{3, Colour::green, 15}}), ONE_PHASE);
    EXPECT_EQ(EncodeReport(std::vector<PhaseLight>{{1, Colour::red, 255}, {200, Colour::yellow, 0}}),
              hex("FE FE 10 00 11 00 02 00 01 02 FF 00 00 00 00 C8 03 00 00 00 00 00"));
    EXPECT_EQ(EncodeReport({}), hex("FE FE 10 00 03 00 00 00"));
    const Bytes most = EncodeReport(PlanAt(0s, {1, 36}));
    EXPECT_EQ(most.size(), 260U);
    EXPECT_EQ(Bytes(most.begin(), most.begin() + 8), hex("FE FE 10 00 FF 00 24 00"));
    const Bytes large = EncodeReport(PlanAt(0s, {1, 40}));
    EXPECT_EQ(Bytes(large.begin(), large.begin() + 8), hex("FE FE 10 01 1B 00 28 00"));
}

TEST(Report, IsClassified) {
    const std::pair<const char*, ReportKind> cases[] = {
        {"FE FE 10 00 0A 00 01 00 03 01 0F 00 00 00 00", ReportKind::good},
        {"FE FE 10 00 0A 00 00 00 03 01 0F 00 00 00 00", ReportKind::good}, // fewer phases than records
        {"FE FE 10 00 03 00 00 00", ReportKind::good},
        {"FE FD 10 00 0A 00 01 00 03 01 0F 00 00 00 00", ReportKind::wrongStart},
        {"FE FE 11 00 0A 00 01 00 03 01 0F 00 00 00 00", ReportKind::wrongStart},
        {"FE FE 10 00", ReportKind::wrongStart},
        {"", ReportKind::wrongStart},
        {"FE FE 10 0A 00 00 01 00 03 01 0F 00 00 00 00", ReportKind::wrongLength}, // low byte first
        {"FE FE 10 00 0A 00 01 00 03 01 0F 00 00 00", ReportKind::wrongLength},
        {"FE FE 10 00 02 00 01", ReportKind::wrongLength},
        {"FE FE 10 00 0A 00 02 00 03 01 0F 00 00 00 00", ReportKind::highCount},
        {"FE FE 10 00 09 00 01 00 03 01 0F 00 00 00", ReportKind::highCount},
    };
    for (const auto& [digits, kind] : cases) {
        EXPECT_EQ(ClassifyReport(hex(digits)), kind) << digits;
    }
}

// Each kind changes its own bytes only, always, and never to what they were.
TEST(Damage, ChangesWhatItsKindSays) {
    const struct {
        ReportKind kind;
        size_t from, to;
    } cases[] = {
        {ReportKind::good, 0, 0},
        {ReportKind::wrongStart, 0, 2},
        {ReportKind::wrongLength, 3, 5},
        {ReportKind::highCount, 6, 7},
    };
    const Bytes good = EncodeReport(PlanAt(0s, {}));
    for (const auto& [kind, from, to] : cases) {
        std::set<Bytes> ways;
        for (uint32_t random = 0; random < 3000; ++random) {
            Bytes damaged = good;
            DamageReport(damaged, kind, random * 2654435761U);
            ways.insert(damaged);
            ASSERT_EQ(ClassifyReport(damaged), kind);
            std::copy(&good[from], &good[to], &damaged[from]);
            ASSERT_EQ(damaged, good);
        }
        EXPECT_EQ(ways.size() > 50, kind != ReportKind::good);
        for (size_t size = 0; size < 8; ++size) { // exactly as large as it says, for the address sanitizer
            Bytes small(good.begin(), good.begin() + static_cast<ptrdiff_t>(size));
            DamageReport(small, kind, 12345);
            EXPECT_EQ(small.size(), size);
        }
    }
    Bytes full = hex("FE FE 10 00 03 00 FF 00");
    DamageReport(full, ReportKind::highCount, 1);
    EXPECT_EQ(full, hex("FE FE 10 00 03 00 FF 00"));
}

TEST(Damage, HitsTheShareAndRepeatsWithTheSeed) {
    for (const double share : {0.0, 0.25, 1.0}) {
        DamageShare first(share, 3, 77);
        DamageShare again(share, 3, 77);
        std::array<int, 3> kinds{};
        for (int number = 0; number < 12000; ++number) {
            const auto hit = first.Next();
            const auto sameHit = again.Next();
            ASSERT_EQ(hit.has_value(), sameHit.has_value());
            if (hit) {
                ASSERT_EQ(hit->kind, sameHit->kind);
                ASSERT_EQ(hit->random, sameHit->random);
                ++kinds.at(hit->kind);
            }
        }
        EXPECT_THAT(kinds,
                    testing::Each(testing::AllOf(testing::Ge(4000 * share * 0.9), testing::Le(4000 * share * 1.1))));
        EXPECT_TRUE(share < 1 || kinds[0] + kinds[1] + kinds[2] == 12000);
    }
}

// ---- replay and sources

TEST(Replay, ReadsGoodLines) {
    std::istringstream in("# capture of a morning\n"
                          "\n"
                          "0 FEFE10\r\n"
                          " \t 0\tfe Fe\t0A # a comment\n"
                          "1500 00");
    const auto datagrams = ReadReplay(in, "x");
    ASSERT_EQ(datagrams.size(), 3U);
    EXPECT_EQ(datagrams[0].bytes, hex("FE FE 10"));
    EXPECT_EQ(datagrams[1].bytes, hex("FE FE 0A"));
    EXPECT_EQ(datagrams[1].time, 0ms);
    EXPECT_EQ(datagrams[2].bytes, hex("00"));
    EXPECT_EQ(datagrams[2].time, 1500ms);
}

TEST(Replay, RefusesBadLinesByNumberAndReason) {
    const std::string longest = "5 " + std::string(65534, 'a');
    const std::pair<std::string, const char*> cases[] = {
        {"", "f: holds no datagram"},
        {"# nothing\n\n", "f: holds no datagram"},
        {"0 FE\nten FE\n", "f:2: 'ten' is not a time in milliseconds"},
        {"-1 FE", "f:1: '-1' is not a time in milliseconds"},
        {"1.5 FE", "f:1: '1.5' is not a time in milliseconds"},
        {"99999999999999999999 FE", "is not a time in milliseconds"},
        {"\n\n0 # FE\n", "f:3: no bytes after the time"},
        {"0 FE F", "f:1: 'F' has an odd number of hex digits"},
        {"0 FE,01", "f:1: 'FE,01' has an odd number of hex digits"},
        {"0 FEG0", "f:1: 'G0' is not a byte in hex"},
        {"0 0x10", "f:1: '0x' is not a byte in hex"},
        {"0 -1", "f:1: '-1' is not a byte in hex"},
        {"7 00\n\n6 00", "f:3: the time goes back"},
        {longest + "aa", "f:1: 32768 bytes; a datagram has at most 32767"},
    };
    for (const auto& [text, reason] : cases) {
        std::istringstream in(text);
        EXPECT_THAT([&] { ReadReplay(in, "f"); }, testing::ThrowsMessage<std::runtime_error>(HasSubstr(reason)));
    }
    std::istringstream in(longest);
    EXPECT_EQ(ReadReplay(in, "f")[0].bytes.size(), 32767U);
    EXPECT_THAT([] { ReadReplayFile("no/such/file"); },
                testing::ThrowsMessage<std::runtime_error>(HasSubstr("no/such/file: cannot be opened: No such file")));
}

// Drains a source as a player that is never late.
std::vector<std::pair<std::chrono::nanoseconds, Bytes>> TakeAll(DatagramSource& source, size_t most) {
    std::vector<std::pair<std::chrono::nanoseconds, Bytes>> taken;
    for (auto due = source.Due(0s); due && taken.size() < most; due = source.Due(*due)) {
        taken.emplace_back(*due, source.Take());
    }
    return taken;
}

TEST(Source, ReplaysOnceOrInRounds) {
    const std::vector<ReplayDatagram> datagrams = {{100ms, {1}}, {150ms, {2}}, {300ms, {3}}};
    ReplaySource once(datagrams, false);
    ReplaySource rounds(datagrams, true);
    ReplaySource single({{5ms, {9}}}, true);
    using testing::Pair;
    EXPECT_THAT(TakeAll(once, 9), ElementsAre(Pair(100ms, Bytes{1}), Pair(150ms, Bytes{2}), Pair(300ms, Bytes{3})));
    EXPECT_THAT(TakeAll(rounds, 5), ElementsAre(Pair(100ms, Bytes{1}), Pair(150ms, Bytes{2}), Pair(300ms, Bytes{3}),
                                                Pair(500ms, Bytes{1}), Pair(550ms, Bytes{2})));
    EXPECT_THAT(TakeAll(single, 2), ElementsAre(Pair(5ms, Bytes{9}), Pair(1010ms, Bytes{9})));
}

TEST(Source, PlaysThePlanWithoutDriftAndCatchesUpOneSecond) {
    PlanSource source(3, {1, 1}, 0s, EncodeReport);
    const auto taken = TakeAll(source, 82);
    EXPECT_EQ(taken[81].first, 27s);
    EXPECT_EQ(taken[80].second, hex("FE FE 10 00 0A 00 01 00 01 01 01 00 00 00 00"));
    EXPECT_EQ(taken[81].second, hex("FE FE 10 00 0A 00 01 00 01 03 03 00 00 00 00"));
    EXPECT_EQ(source.Due(28s).value() / 1ms, 27333);                              // late, still sent
    EXPECT_EQ(source.Due(40s), 40s);                                              // stopped for long: goes on from now
    EXPECT_EQ(PlanSource(3, {1, 1}, 27s, EncodeReport).Take(), taken[81].second); // begun in the midst of the plan
}

TEST(Endpoint, TakesAddressAndPort) {
    const struct {
        const char* given;
        const char* defaultIp;
        const char* result; // or the reason of the refusal
    } cases[] = {
        {"127.0.0.1:8002", nullptr, "127.0.0.1:8002"},
        {"8002", "0.0.0.0", "0.0.0.0:8002"},
        {"10.255.0.1:65535", "0.0.0.0", "10.255.0.1:65535"},
        {"8002", nullptr, "'8002' is not IP:PORT"},
        {"", nullptr, "'' is not IP:PORT"},
        {"1.2.3.4:0", nullptr, "'0' is not a UDP port"},
        {"1.2.3.4:65536", nullptr, "'65536' is not a UDP port"},
        {"1.2.3.4:", nullptr, "'' is not a UDP port"},
        {"1.2.3.4:5x", nullptr, "'5x' is not a UDP port"},
        {"1.2.3.256:5", nullptr, "'1.2.3.256' is not an IPv4 address"},
        {"1.2.3:5", nullptr, "'1.2.3' is not an IPv4 address"},
        {"1.2.3.4.5:5", nullptr, "'1.2.3.4.5' is not an IPv4 address"},
        {"1..3.4:5", nullptr, "'1..3.4' is not an IPv4 address"},
        {"1.2.3.04:5", nullptr, "'1.2.3.04' is not an IPv4 address"},
        {":5", nullptr, "'' is not an IPv4 address"},
        {"localhost:5", nullptr, "'localhost' is not an IPv4 address"},
    };
    for (const auto& [given, defaultIp, result] : cases) {
        std::string got;
        try {
            got = EndpointText(ParseEndpoint(given, defaultIp));
        } catch (const std::invalid_argument& reason) {
            got = reason.what();
        }
        EXPECT_THAT(got, testing::StartsWith(result));
    }
}

// ---- frames to the stack

// Intersection 1/2, 12:34:56.789, phase 3 permissive green for 15.0 s.
const Bytes FRAME = hex("A5 5A 04 00 40 78 0A E9 68 27 06 00 14 00 29 00 00 "
                        "01 00 00 00 18 00 00 00 1E 00 00 "
                        "02 00 01 00 00 00 12 27 07 00 D5 DD 01 "
                        "03 01 01 05 00 00 96 00 FF FF FF FF FF FF FF FF FF");
constexpr size_t RECORD_AT = 28;
constexpr size_t PHASE_NUM_AT = 40;

// The frame with another record inside and lengths that fit it.
Bytes WithRecord(const Bytes& record) {
    Bytes frame(FRAME.begin(), FRAME.begin() + RECORD_AT);
    frame.insert(frame.end(), record.begin(), record.end());
    frame[14] = static_cast<uint8_t>(11 + record.size());
    frame[25] = static_cast<uint8_t>(record.size());
    return frame;
}

Bytes WithEntries(uint8_t phaseNum, const std::string& entries) {
    Bytes record(FRAME.begin() + RECORD_AT, FRAME.begin() + PHASE_NUM_AT);
    record.push_back(phaseNum);
    const Bytes more = hex(entries);
    record.insert(record.end(), more.begin(), more.end());
    return WithRecord(record);
}

// "taken", "request", or the rung that refused.
std::string Verdict(const Bytes& datagram) {
    const Frame frame = ReadFrame(datagram);
    if (const auto* refusal = std::get_if<Refusal>(&frame)) {
        EXPECT_NE(refusal->why, "");
        return RungName(refusal->rung);
    }
    return std::holds_alternative<SpatRecord>(frame) ? "taken" : "request";
}

const std::string GREEN = "03 01 01 05 00 00 96 00 FF FF FF FF FF FF FF FF FF ";

TEST(IpcRecord, ReadsARecord) {
    ASSERT_EQ(FRAME.size(), 58U);
    const auto record = std::get<SpatRecord>(ReadFrame(FRAME));
    EXPECT_THAT(RecordLines(record), ElementsAre("12:34:56.789  1/2  phase  3  permissive green   15.0 s"));
    EXPECT_EQ(
        RecordJson(record, 1732181400200000),
        R"({"intersection":65538,"region":1,"node":2,"status":0,"moy":468754,"secMark":56789,"phaseNum":1,)"
        R"("phases":[{"id":3,"states":[{"mode":1,"light":"permissive green","lightCode":5,"start":0,"end":150}]}],)"
        R"("emptyEntries":0,"receiveTime":1732181400200000,"sendTime":1732181400123456})");
}

TEST(IpcRecord, ShowsStatesOptionalsAndPadding) {
    const auto record =
        std::get<SpatRecord>(ReadFrame(WithEntries(5, "00 00 " // padding
                                                      "07 00 " // a phase without state
                                                      "78 02 01 03 00 00 A1 8C C8 00 64 00 A1 8C 32 00 05 "
                                                      "02 09 78 00 79 00 FF FF FF FF FF FF FF FF FF "
                                                      "00 00 " +
                                                          GREEN)));
    EXPECT_EQ(record.emptyEntries, 2U);
    EXPECT_THAT(RecordLines(record),
                ElementsAre("12:34:56.789  1/2  phase  7  no state",
                            "12:34:56.789  1/2  phase 120  red               unknown, then light 9 12.0 s to 12.1 s",
                            "12:34:56.789  1/2  phase  3  permissive green   15.0 s"));
    EXPECT_THAT(RecordJson(record, 0),
                HasSubstr(R"("phaseNum":5,"phases":[{"id":7,"states":[]},{"id":120,"states":[)"
                          R"({"mode":1,"light":"red","lightCode":3,"start":0,"end":null,"maxEnd":200,"minEnd":100,)"
                          R"("nextStart":null,"nextDuration":50,"confidence":5},)"
                          R"({"mode":2,"light":"light 9","lightCode":9,"start":120,"end":121}]},{"id":3,)"));
}

TEST(IpcRecord, ClimbsTheLadder) {
    const struct {
        size_t at;
        uint8_t value;
        const char* verdict;
    } changes[] = {
        {0, 0xA6, "flag"},      {1, 0x5B, "flag"},     {14, 0x28, "packLen"}, {14, 0x2A, "packLen"},
        {15, 0x01, "packLen"},  {12, 0x15, "cmd"},     {13, 0x01, "cmd"},     {17, 0x02, "dataType"},
        {20, 0x80, "dataType"}, {21, 0x01, "dataNo"},  {25, 0x1D, "dataLen"}, {25, 0x1F, "dataLen"},
        {26, 0x01, "dataLen"},  {17, 0x0B, "dataLen"}, {40, 0x00, "record"},  {40, 0x02, "record"},
        {40, 0xFF, "record"},   {42, 0x00, "record"},  {42, 0x02, "record"},  {42, 0xFF, "record"},
        {2, 0x00, "taken"},     {3, 0x01, "taken"},    {16, 0xFF, "taken"},   {27, 0xFF, "taken"},
    };
    for (const auto& [at, value, verdict] : changes) {
        Bytes frame = FRAME;
        frame[at] = value;
        EXPECT_EQ(Verdict(frame), verdict) << "byte " << at << " = " << int{value};
    }
    Bytes longer = FRAME;
    longer.push_back(0);
    EXPECT_EQ(Verdict(longer), "packLen");
    EXPECT_EQ(Verdict(hex("A5 5A 04 00 00 00 00 00 00 00 00 00 14 00 0B 00 00 0B 00 00 00 01 00 00 00 00 00 00")),
              "request");
}

// Each cut is a block of its own size: the address sanitizer sees a read past its end.
TEST(IpcRecord, RefusesEveryCut) {
    for (size_t size = 0; size < FRAME.size(); ++size) {
        const Bytes cut(FRAME.begin(), FRAME.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(Verdict(cut), size < RECORD_AT ? "length" : "packLen") << size;
        if (size >= RECORD_AT) {
            EXPECT_EQ(Verdict(WithRecord(Bytes(cut.begin() + RECORD_AT, cut.end()))), "record") << size;
        }
    }
}

TEST(IpcRecord, TakesPhaseNumAtItsWord) {
    const struct {
        std::string entries;
        const char* verdict;
        size_t phases;
        uint32_t empty;
        uint8_t phaseNum;
    } cases[] = {
        {"", "taken", 0, 0, 0},
        {"", "taken", 0, 0, 0x80}, // negative: no entries
        {"00 00", "record", 0, 0, 0xFF},
        {GREEN + "00 00 00 00", "taken", 1, 2, 3},
        {GREEN + "00 00", "record", 0, 0, 3},
        {GREEN + "00 00 00", "record", 0, 0, 3},
        {GREEN + GREEN, "taken", 2, 0, 2},
        {"00 01 01 05 00 00 96 00 FF FF FF FF FF FF FF FF FF", "taken", 1, 0, 1}, // id 0 with a state is no padding
        {"05 00", "taken", 1, 0, 1},
    };
    for (const auto& [entries, verdict, phases, empty, phaseNum] : cases) {
        const Bytes datagram = WithEntries(phaseNum, entries);
        ASSERT_EQ(Verdict(datagram), verdict) << int{phaseNum} << ": " << entries;
        const Frame frame = ReadFrame(datagram);
        if (const auto* record = std::get_if<SpatRecord>(&frame)) {
            EXPECT_EQ(record->phaseNum, static_cast<int8_t>(phaseNum));
            EXPECT_EQ(record->phases.size(), phases) << entries;
            EXPECT_EQ(record->emptyEntries, empty) << entries;
        }
    }
    const auto none = std::get<SpatRecord>(ReadFrame(WithEntries(0x80, "")));
    EXPECT_THAT(RecordLines(none), ElementsAre("12:34:56.789  1/2  no phases"));
}

TEST(Summary, IsOneJsonObject) {
    EXPECT_EQ(SummaryJson({"for people", {{"sent", 3}, {"most", UINT64_MAX}}}),
              R"({"summary":{"sent":3,"most":18446744073709551615}})");
}

} // namespace
