// What the simulated stack application reads and answers.
#include <gtest/gtest.h>
#include <tuple>

#include "bytes.h"
#include "ipc_record.h"
#include "stack_answer.h"
#include "stack_reply.h"

using namespace sim;

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

// Returns the frame with its two length fields corrected.
Bytes WithLengths(Bytes frame) {
    frame[14] = static_cast<uint8_t>(frame.size() - 17);
    frame[25] = static_cast<uint8_t>(frame.size() - RECORD_AT);
    return frame;
}

// Returns the name of the fault, or "PHASES + EMPTY ENTRIES" of a valid record.
std::string Verdict(const Bytes& datagram) {
    const Frame frame = ReadFrame(datagram);
    if (const auto* rejection = std::get_if<Rejection>(&frame)) {
        return FAULTS[static_cast<size_t>(rejection->fault)].text;
    }
    const auto& record = std::get<SpatRecord>(frame);
    return std::to_string(record.phases.size()) + " + " + std::to_string(record.emptyEntries);
}

TEST(IpcRecord, ShowsARecord) {
    auto record = std::get<SpatRecord>(ReadFrame(FRAME));
    EXPECT_EQ(RecordLines(record).at(0), "12:34:56.789  1/2  phase  3  permissive green   15.0 s");
    EXPECT_EQ(
        RecordJson(record, 1732181400200000),
        R"({"intersection":65538,"region":1,"node":2,"status":0,"moy":468754,"secMark":56789,"phaseNum":1,)"
        R"("phases":[{"id":3,"states":[{"mode":1,"light":"permissive green","lightCode":5,"start":0,"end":150}]}],)"
        R"("emptyEntries":0,"receiveTime":1732181400200000,"sendTime":1732181400123456})");
    record.moy = 0xFFFFFFFF;
    record.secMark = 65535;
    EXPECT_EQ(RecordLines(record).at(0), "--:--:--.---  1/2  phase  3  permissive green   15.0 s");
}

TEST(IpcRecord, NamesTheFaultOfAFrame) {
    const std::tuple<size_t, uint8_t, const char*> changes[] = {
        {1, 0x5B, "flag"},      {14, 0x28, "packLen"}, {12, 0x15, "cmd"},
        {17, 0x02, "dataType"}, {21, 0x01, "dataNo"},  {25, 0x1F, "dataLen"},
        {40, 0x02, "record"},   {42, 0xFF, "record"},  {16, 0xFF, "1 + 0"},
    };
    for (const auto& [at, value, verdict] : changes) {
        Bytes frame = FRAME;
        frame[at] = value;
        EXPECT_EQ(Verdict(frame), verdict) << "byte " << at << " = " << int{value};
    }
}

// Each truncated frame is a heap block of exactly its size, so that the address sanitizer reports a read past its end.
TEST(IpcRecord, RejectsTruncatedFrames) {
    for (size_t size = 0; size < FRAME.size(); ++size) {
        const Bytes cut(FRAME.begin(), FRAME.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_EQ(Verdict(cut), size < RECORD_AT ? "length" : "packLen") << size;
        if (size >= RECORD_AT) {
            EXPECT_EQ(Verdict(WithLengths(cut)), "record") << size;
        }
    }
}

TEST(IpcRecord, ReadsAsManyEntriesAsPhaseNum) {
    const std::pair<std::string, const char*> cases[] = {
        {"80", "0 + 0"}, // negative: no entries
        {"03" + GREEN + "00 00 00 00", "1 + 2"},
        {"01 00" + GREEN.substr(2), "1 + 0"}, // id 0 with a state is not padding
    };
    for (const auto& [phaseNumAndEntries, verdict] : cases) {
        Bytes frame(FRAME.begin(), FRAME.begin() + PHASE_NUM_AT);
        const Bytes rest = hex(phaseNumAndEntries);
        frame.insert(frame.end(), rest.begin(), rest.end());
        EXPECT_EQ(Verdict(WithLengths(frame)), verdict) << phaseNumAndEntries;
    }
}

// ---- replies

constexpr uint64_t TIME = 1732181400123456; // 2024-11-21 09:30:00.123456 UTC

TEST(StackReply, EncodesTheReplyDatagram) {
    const Bytes wire = hex("A5 5A 04 00 40 78 0A E9 68 27 06 00 15 00 12 00 00 0B 00 00 00 02 00 00 00 07 00 00 "
                           "01 00 30 02 00 AB CD");
    EXPECT_EQ(EncodeReply(std::vector<Item>{{0x30}, {0xAB, 0xCD}}, TIME), wire);
}

// ---- SPAT messages built from records

// Sets the message count to zero, because the codec increments the count with each message.
Bytes WithoutCount(std::optional<Bytes> frame) {
    frame.value().at(1) &= 1;
    return *frame;
}

// Another encoder made the expected frames. The codec encodes an absent next start and next duration as "unknown".
TEST(SpatBuild, EncodesTheRecord) {
    EXPECT_EQ(WithoutCount(BuildSpat(std::get<SpatRecord>(ReadFrame(FRAME)))),
              hex("3600E4E25BBAA00800080010000001825060000012D194319420"));
    SpatRecord full = {TIME, 0xFFFFFEDC, 0x0503, 0xFFFFFFFF, 65535, 3, {}, 0};
    // Confidence 29 checks the rounding: in floating point 29 / 200 * 200 is below 29. State mode 0 means no timing.
    full.phases = {{255, {{1, 8, 1, 36001, 36000, 7, 333, 65, 199}, {1, 3, 29, 57, {}, {}, {}, {}, 29}}},
                   {7, {}},
                   {0, {{0, 1, 0, 0, {}, {}, {}, {}, {}}}}};
    EXPECT_EQ(WithoutCount(BuildSpat(full)),
              hex("3201FFFE00FFFFFF6E02818FF8A83E0002000F194119438E029A00828C3800E801C8EC650C65080001"));
}

} // namespace
