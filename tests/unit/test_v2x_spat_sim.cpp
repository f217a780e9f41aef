#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <sstream>

#include "bytes.h"
#include "damage.h"
#include "ipc_print.h"
#include "ipc_record.h"
#include "plan.h"
#include "replay.h"
#include "report.h"

using namespace sim;
using testing::ElementsAre;
using namespace std::chrono_literals;

namespace {

// ---- damage

// Exactly as large as it says, for the address sanitizer.
TEST(Damage, IsOfItsKindAndStaysWithinShortReports) {
    const Bytes good = EncodeReport(PlanAt(0s, {}));
    for (const ReportKind kind :
         {ReportKind::good, ReportKind::wrongStart, ReportKind::wrongLength, ReportKind::highCount}) {
        for (uint32_t random = 0; random < 3000; ++random) {
            Bytes damaged = good;
            DamageReport(damaged, kind, random * 2654435761U);
            ASSERT_EQ(ClassifyReport(damaged), kind);
        }
        for (size_t size = 0; size < 8; ++size) {
            Bytes small(good.begin(), good.begin() + static_cast<ptrdiff_t>(size));
            DamageReport(small, kind, 12345);
            EXPECT_EQ(small.size(), size);
        }
    }
}

// ---- replay

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

// ---- frames to the stack

// Intersection 1/2, 12:34:56.789, phase 3 permissive green for 15.0 s.
const Bytes FRAME = hex("A5 5A 04 00 40 78 0A E9 68 27 06 00 14 00 29 00 00 "
                        "01 00 00 00 18 00 00 00 1E 00 00 "
                        "02 00 01 00 00 00 12 27 07 00 D5 DD 01 "
                        "03 01 01 05 00 00 96 00 FF FF FF FF FF FF FF FF FF");
const std::string GREEN = "03 01 01 05 00 00 96 00 FF FF FF FF FF FF FF FF FF ";
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

// "taken", "request", or the rung that refused.
std::string Verdict(const Bytes& datagram) {
    const Frame frame = ReadFrame(datagram);
    if (const auto* refusal = std::get_if<Refusal>(&frame)) {
        EXPECT_NE(refusal->why, "");
        return RungName(refusal->rung);
    }
    return std::holds_alternative<SpatRecord>(frame) ? "taken" : "request";
}

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

TEST(IpcRecord, ClimbsTheLadder) {
    const struct {
        size_t at;
        uint8_t value;
        const char* verdict;
    } changes[] = {
        {1, 0x5B, "flag"},      {14, 0x28, "packLen"}, {15, 0x01, "packLen"}, {12, 0x15, "cmd"},
        {17, 0x02, "dataType"}, {21, 0x01, "dataNo"},  {25, 0x1D, "dataLen"}, {25, 0x1F, "dataLen"},
        {17, 0x0B, "dataLen"},  {40, 0x00, "record"},  {40, 0x02, "record"},  {42, 0xFF, "record"},
        {2, 0x00, "taken"},     {16, 0xFF, "taken"},
    };
    for (const auto& [at, value, verdict] : changes) {
        Bytes frame = FRAME;
        frame[at] = value;
        EXPECT_EQ(Verdict(frame), verdict) << "byte " << at << " = " << int{value};
    }
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
        {"", "taken", 0, 0, 0x80}, // negative: no entries
        {"00 00", "record", 0, 0, 0xFF},
        {GREEN + "00 00 00 00", "taken", 1, 2, 3},
        {GREEN + "00 00 00", "record", 0, 0, 3},
        {GREEN + GREEN, "taken", 2, 0, 2},
        {"00 01 01 05 00 00 96 00 FF FF FF FF FF FF FF FF FF", "taken", 1, 0, 1}, // id 0 with a state is no padding
        {"05 00", "taken", 1, 0, 1},
    };
    for (const auto& [entries, verdict, phases, empty, phaseNum] : cases) {
        Bytes bytes(FRAME.begin() + RECORD_AT, FRAME.begin() + PHASE_NUM_AT);
        bytes.push_back(phaseNum);
        const Bytes more = hex(entries);
        bytes.insert(bytes.end(), more.begin(), more.end());
        ASSERT_EQ(Verdict(WithRecord(bytes)), verdict) << int{phaseNum} << ": " << entries;
        const Frame frame = ReadFrame(WithRecord(bytes));
        if (const auto* record = std::get_if<SpatRecord>(&frame)) {
            EXPECT_EQ(record->phases.size(), phases) << entries;
            EXPECT_EQ(record->emptyEntries, empty) << entries;
        }
    }
}

} // namespace
