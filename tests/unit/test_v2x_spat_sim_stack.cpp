// What the simulated stack application reads and answers.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "bytes.h"
#include "ipc_record.h"
#include "stack_answer.h"
#include "stack_reply.h"

using namespace sim;
using testing::ElementsAre;

namespace {

// ---- frames from the daemon

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

// The fault, "request", or the numbers of phases and empty entries of a record.
std::string Verdict(const Bytes& datagram) {
    const Frame frame = ReadFrame(datagram);
    if (const auto* rejection = std::get_if<Rejection>(&frame)) {
        EXPECT_NE(rejection->why, "");
        return FAULTS[static_cast<size_t>(rejection->fault)].text;
    }
    const auto* record = std::get_if<SpatRecord>(&frame);
    return record == nullptr ? "request"
                             : std::to_string(record->phases.size()) + " + " + std::to_string(record->emptyEntries);
}

TEST(IpcRecord, ShowsARecord) {
    ASSERT_EQ(FRAME.size(), 58U);
    auto record = std::get<SpatRecord>(ReadFrame(FRAME));
    EXPECT_THAT(RecordLines(record), ElementsAre("12:34:56.789  1/2  phase  3  permissive green   15.0 s"));
    EXPECT_EQ(
        RecordJson(record, 1732181400200000),
        R"({"intersection":65538,"region":1,"node":2,"status":0,"moy":468754,"secMark":56789,"phaseNum":1,)"
        R"("phases":[{"id":3,"states":[{"mode":1,"light":"permissive green","lightCode":5,"start":0,"end":150}]}],)"
        R"("emptyEntries":0,"receiveTime":1732181400200000,"sendTime":1732181400123456})");
    record.moy = 0xFFFFFFFF;
    EXPECT_THAT(RecordLines(record), ElementsAre("--:--:56.789  1/2  phase  3  permissive green   15.0 s"));
    record.secMark = 65535;
    EXPECT_THAT(RecordLines(record), ElementsAre("--:--:--.---  1/2  phase  3  permissive green   15.0 s"));
}

TEST(IpcRecord, NamesTheFaultOfAFrame) {
    const struct {
        size_t at;
        uint8_t value;
        const char* verdict;
    } changes[] = {
        {1, 0x5B, "flag"},      {14, 0x28, "packLen"}, {15, 0x01, "packLen"}, {12, 0x15, "cmd"},
        {17, 0x02, "dataType"}, {21, 0x01, "dataNo"},  {25, 0x1D, "dataLen"}, {25, 0x1F, "dataLen"},
        {17, 0x0B, "dataLen"},  {40, 0x00, "record"},  {40, 0x02, "record"},  {42, 0xFF, "record"},
        {2, 0x00, "1 + 0"},     {16, 0xFF, "1 + 0"},
    };
    for (const auto& [at, value, verdict] : changes) {
        Bytes frame = FRAME;
        frame[at] = value;
        EXPECT_EQ(Verdict(frame), verdict) << "byte " << at << " = " << int{value};
    }
    EXPECT_EQ(Verdict(hex("A5 5A 04 00 00 00 00 00 00 00 00 00 14 00 0B 00 00 0B 00 00 00 01 00 00 00 00 00 00")),
              "request");
}

// Blocks of their exact size, so that the address sanitizer sees a read past the end.
TEST(IpcRecord, RejectsEveryCut) {
    for (size_t size = 0; size < FRAME.size(); ++size) {
        const Bytes cut(FRAME.begin(), FRAME.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(Verdict(cut), size < RECORD_AT ? "length" : "packLen") << size;
        if (size >= RECORD_AT) {
            EXPECT_EQ(Verdict(WithRecord(Bytes(cut.begin() + RECORD_AT, cut.end()))), "record") << size;
        }
    }
}

TEST(IpcRecord, ReadsAsManyEntriesAsPhaseNum) {
    const struct {
        std::string phaseNumAndEntries;
        const char* verdict;
    } cases[] = {
        {"80", "0 + 0"}, // negative: no entries
        {"FF 00 00", "record"},
        {"03" + GREEN + "00 00 00 00", "1 + 2"},
        {"03" + GREEN + "00 00 00", "record"},
        {"02" + GREEN + GREEN, "2 + 0"},
        {"01 00 01 01 05 00 00 96 00 FF FF FF FF FF FF FF FF FF", "1 + 0"}, // id 0 with a state is not padding
        {"01 05 00", "1 + 0"},
    };
    for (const auto& [phaseNumAndEntries, verdict] : cases) {
        Bytes record(FRAME.begin() + RECORD_AT, FRAME.begin() + PHASE_NUM_AT);
        const Bytes rest = hex(phaseNumAndEntries);
        record.insert(record.end(), rest.begin(), rest.end());
        EXPECT_EQ(Verdict(WithRecord(record)), verdict) << phaseNumAndEntries;
    }
}

// ---- replies

constexpr uint64_t TIME = 1732181400123456; // 2024-11-21 09:30:00.123456 UTC

TEST(StackReply, HasTheBytesOfTheWire) {
    const Bytes wire = hex("A5 5A 04 00 40 78 0A E9 68 27 06 00 15 00 12 00 00 0B 00 00 00 02 00 00 00 07 00 00 "
                           "01 00 30 02 00 AB CD");
    EXPECT_EQ(EncodeReply(std::vector<Item>{{0x30}, {0xAB, 0xCD}}, TIME), wire);
}

// ---- messages made of records

SpatRecord Record(std::vector<Phase> phases) {
    return {TIME, 0x10002, 0, 468754, 56789, static_cast<int8_t>(phases.size()), std::move(phases), 0};
}

PhaseState Light(uint8_t light, uint16_t start, uint16_t end) {
    return {1, light, start, end, {}, {}, {}, {}, {}};
}

const SpatRecord RECORD = Record({{3, {Light(5, 0, 150)}}});

// The message with a message count of zero; the codec counts up with each message.
Bytes WithoutCount(std::optional<Bytes> frame) {
    EXPECT_TRUE(frame);
    frame.value().at(1) &= 1;
    return *frame;
}

// The expected frames were made by another encoder. An absent next time is encoded as unknown.
TEST(SpatBuild, EncodesTheRecord) {
    EXPECT_EQ(WithoutCount(BuildSpat(RECORD)), hex("3600E4E25BBAA00800080010000001825060000012D194319420"));
    SpatRecord full = Record({{255, {Light(8, 1, 36001), Light(3, 29, 57)}}, {7, {}}, {0, {Light(1, 0, 0)}}});
    full.intersection = 0xFFFFFEDC;
    full.status = 0x0503;
    full.moy = 0xFFFFFFFF;
    full.secMark = 65535;
    PhaseState& first = full.phases[0].states[0];
    first.minEnd = 7;
    first.maxEnd = 36000;
    first.nextStart = 333;
    first.nextDuration = 65;
    first.confidence = 199;
    full.phases[0].states[1].confidence = 29; // 29 / 200 * 200 is a little less than 29
    full.phases[2].states[0].mode = 0;        // no timing
    EXPECT_EQ(WithoutCount(BuildSpat(full)),
              hex("3201FFFE00FFFFFF6E02818FF8A83E0002000F194119438E029A00828C3800E801C8EC650C65080001"));
}

} // namespace
