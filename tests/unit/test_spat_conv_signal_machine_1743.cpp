#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device_test.h"
#include "frame_1743.h"
#include "spat_conv_signal_machine_1743.h"
#include "spat_conv_signal_machine_1743_light.h"

namespace {

using namespace frame_1743;
using testing::ElementsAre;
using testing::IsEmpty;

constexpr size_t RING_SIZE = 20480;

class Controller : public DeviceTest {
protected:
    Controller() {
        m_config->m_signal_machine_1743_info.m_local_port = 65536 + 9002;
        g_1743Link.dds_status = {};
        g_1743Link.lm_run_status_flag = 0;
        g_1743Link.next_sender_line = UINT64_MAX; // no line about the sender of an invalid frame
        m_config->m_guard.m_sources[V2XSPATCONV_1743].m_only_from.count = 1;
    }

    int32_t start() { return v2xspatconv_SignalMachine1743InterfaceInit(*m_config); }
    static void receive(const Bytes& bytes) { fakes::receive("1743_RECV_SG", bytes); }
    static void process() { fakes::tasks.at(1).run(); }
    static std::vector<std::string> recordsOf(const Bytes& bytes) {
        receive(bytes);
        process();
        return records();
    }
    static std::vector<std::string> messages() { return DeviceTest::messages("1743"); }
};

const std::vector<Link> ONE_LINK = {{0, {{1, 0x20, 25}}}};

TEST_F(Controller, SendsThisDatagramForAFrame) {
    ASSERT_EQ(start(), 0);
    // Header, crossing with one link from the north, one lamp group of type 1, green for 25 s.
    receive(frame(payload(ONE_LINK)));
    EXPECT_THAT(fakes::sent, IsEmpty()) << "before the processing task runs";
    process();
    ASSERT_EQ(fakes::sent.size(), 1U);
    EXPECT_EQ(fakes::sent[0].bytes,
              hex("A55A 04 00 0806072A464C0600 1400 2900 00  01000000 18000000 1E00 00"
                  "02000100 0000 52650100 D5DD 01  01 01 01 05 0000 FA00 FFFF FFFF FFFF FFFF FF"));
}

TEST_F(Controller, ConvertsLightStatusToPhases) {
    ASSERT_EQ(start(), 0);
    const struct {
        const char* what;
        std::vector<Link> links;
        std::string record;
    } cases[] = {
        {"no links", {}, "0;"},
        {"angles to the north",
         {{0, {{1, 2, 1}}}, {315, {{2, 2, 2}}}, {44, {{3, 2, 3}}}, {400, {{9, 2, 4}}}},
         "4; 1:3:10 7:3:20 13:3:30 17:3:40"},
        {"angles to the east and south",
         {{45, {{1, 2, 1}}}, {134, {{2, 2, 2}}}, {135, {{1, 2, 3}}}, {224, {{2, 2, 4}}}},
         "4; 2:3:10 3:3:30 8:3:20 9:3:40"},
        {"angles to the west", {{225, {{1, 2, 1}}}, {314, {{2, 2, 2}}}}, "2; 4:3:10 10:3:20"},
        {"lamp type 8, the irregular row",
         {{0, {{8, 2, 1}}}, {90, {{8, 2, 2}}}, {180, {{8, 2, 3}}}, {270, {{8, 2, 4}}}},
         "4; 5:3:10 6:3:20 11:3:30 12:3:40"},
        {"lamp types 3 and 9",
         {{90, {{3, 2, 1}, {9, 2, 2}}}, {180, {{3, 2, 3}, {9, 2, 4}}}, {270, {{3, 2, 5}, {9, 2, 6}}}},
         "6; 14:3:10 15:3:30 16:3:50 18:3:20 19:3:40 20:3:60"},
        {"unknown lamp types count", {{0, {{4, 2, 1}, {1, 2, 1}}}}, "2; 1:3:10"},
        {"colours",
         {{0, {{1, 0x22, 1}, {2, 0x28, 1}, {3, 0x20, 1}, {8, 0x01, 1}, {9, 0xFF, 1}}}},
         "5; 1:3:10 5:0:10 7:7:10 13:5:10 17:3:10"},
        {"seconds unknown", {{0, {{1, 0x02, 0}, {2, 0x02, 255}}}}, "2; 1:0:36001 7:3:2550"},
        {"the first of two equal phases", {{0, {{1, 0x02, 1}}}, {350, {{1, 0x20, 2}}}}, "2; 1:3:10"},
        {"eleven links of eleven groups", std::vector<Link>(11, Link{0, std::vector<Group>(11, Group{1, 2, 1})}),
         "121; 1:3:10"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        EXPECT_THAT(recordsOf(frame(payload(row.links))), ElementsAre(row.record));
    }
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(Controller, RejectsPayloadsWithTheMessagesOfTheirLevel) {
    ASSERT_EQ(start(), 0);
    const Bytes good = payload({{0, {{1, 2, 1}}}});
    const auto cut = [&](size_t length) { return Bytes(good.begin(), good.begin() + static_cast<ptrdiff_t>(length)); };
    const std::string record = "3 DealSignalMachineToIpcSpat error";
    const std::string link = "2 Deal into link light color status info error";
    const std::string group = "2 Deal light group color info error";
    const struct {
        const char* what;
        Bytes payload;
        std::vector<std::string> messages; // empty: ignored, no sign of life
    } cases[] = {
        {"object id swapped", header(0x87, 0x01, 0x03) + cut(13), {}},
        {"crossing cut short", cut(43), {record}},
        {"link cut short", cut(46), {link, record}},
        {"group cut short", cut(50), {group, link, record}},
        {"twelve groups",
         payload({{0, std::vector<Group>(12, Group{1, 2, 1})}}),
         {"2 into light group count is too much", link, record}},
        {"twelve links",
         payload(std::vector<Link>(12, Link{0, {{1, 2, 1}}})),
         {"2 into link count is too much", record}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        v2xspatconv_SetSpatConvStatus({.service_type = 2, .run_status = 2});
        EXPECT_THAT(recordsOf(frame(row.payload)), IsEmpty());
        EXPECT_EQ(messages(), row.messages);
        EXPECT_EQ(runStatus(), row.messages.empty() ? 2 : 1);
    }
    EXPECT_EQ(countsOf("1743")["other_type"], 1U);
    EXPECT_EQ(countsOf("1743")["not_converted"], 5U);
}

// ---- byte stream

// A frame of this many bytes on the wire: light status of a crossing without links, then filler. Nothing needs an
// escape.
Bytes frameOfLength(size_t length) {
    Bytes bytes = payload({});
    bytes.resize(length - 4, 0x33);
    return frame(bytes);
}

TEST_F(Controller, ChecksFrameLengths) {
    ASSERT_EQ(start(), 0);
    const std::vector<std::string> wrongLength = {"3 GetOneCompleteDataPacket error"};
    // 31 bytes hold a payload of 27, too short for the header: accepted by length, then ignored.
    EXPECT_THAT(recordsOf(frame(Bytes(26, 1))), IsEmpty());
    EXPECT_EQ(messages(), wrongLength);
    EXPECT_THAT(recordsOf(frame(Bytes(27, 1))), IsEmpty());
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_THAT(recordsOf(frameOfLength(5119)), ElementsAre("0;"));
    EXPECT_THAT(messages(), IsEmpty());
    EXPECT_THAT(recordsOf(frameOfLength(5120)), IsEmpty());
    EXPECT_THAT(messages(), ElementsAre("2 ConvertDecodeData error"));
    // Over-long frames are discarded up to their closing delimiter: the good frames that follow survive.
    const Bytes good = frameOfLength(60);
    for (const size_t length : {5121U, 6002U, 15000U}) {
        EXPECT_THAT(recordsOf(Bytes{0xC0} + Bytes(length - 2, 1) + Bytes{0xC0} + good + good + good + good),
                    ElementsAre("0;", "0;", "0;", "0;"));
        EXPECT_EQ(messages(), wrongLength);
    }
    // Without a closing delimiter: discarded up to the end of the ring.
    EXPECT_THAT(recordsOf(Bytes{0xC0} + Bytes(5119, 1)), IsEmpty());
    EXPECT_EQ(messages(), wrongLength);
    EXPECT_THAT(recordsOf(Bytes{0xC0} + Bytes(5118, 1)), IsEmpty());
    EXPECT_EQ(countsOf("1743")["bytes_cut"], 5119U) << "incomplete, not too long";
    EXPECT_EQ(countsOf("1743")["too_long"], 4U);
}

TEST_F(Controller, UnescapesBodyAndCrc) {
    ASSERT_EQ(start(), 0);
    // Seconds 0xC0 and 0xDB. Two more bytes can give any CRC, and here give one of both.
    const Bytes bytes = payload({{0, {{1, 2, 0xC0}, {2, 2, 0xDB}}}});
    uint32_t filler = 0;
    const auto filled = [&] { return bytes + Bytes{static_cast<uint8_t>(filler), static_cast<uint8_t>(filler >> 8)}; };
    while (crc(filled()) != 0xC0DB) {
        ASSERT_LT(++filler, 0x10000U);
    }
    EXPECT_THAT(recordsOf(frame(filled())), ElementsAre("2; 1:3:1920 7:3:2190"));
    // DB 41 stays as it is: the CRC of those bytes is correct.
    Bytes kept = payload({{0, {{1, 2, 5}, {2, 0xDB, 0x41}}}});
    const uint16_t sum = crc(kept);
    kept.insert(kept.end(), {static_cast<uint8_t>(sum), static_cast<uint8_t>(sum >> 8), 0xC0});
    EXPECT_THAT(recordsOf(Bytes{0xC0} + kept), ElementsAre("2; 1:3:50 7:3:650"));
    EXPECT_THAT(messages(), IsEmpty());
}

TEST_F(Controller, RejectsFrameWithWrongCrc) {
    ASSERT_EQ(start(), 0);
    EXPECT_THAT(recordsOf(frame(payload(ONE_LINK), 1)), IsEmpty());
    EXPECT_THAT(messages(), ElementsAre(testing::StartsWith("2 crc error,calc:")));
    EXPECT_EQ(countsOf("1743")["wrong_crc"], 1U);
}

TEST_F(Controller, NamesTheLastSenderBeforeAnInvalidFrame) {
    m_config->m_guard.m_sources[V2XSPATCONV_1743].m_only_from.count = 0;
    ASSERT_EQ(start(), 0);
    EXPECT_THAT(messages(), ElementsAre("3 1743: OnlyFrom is not set, datagrams of any sender are accepted"));
    const std::string line = "3 the last datagram before the invalid frame came from 192.168.1.66:4000";
    const Bytes invalid[] = {frame(Bytes(26, 1)), frameOfLength(5120), frameOfLength(5121),
                             frame(payload(ONE_LINK), 1)};
    for (const Bytes& bytes : invalid) {
        g_1743Link.next_sender_line = 0;
        fakes::receive("1743_RECV_SG", frame(payload(ONE_LINK)), {0xC0A80114, 4000});
        fakes::receive("1743_RECV_SG", bytes + bytes, {0xC0A80142, 4000});
        process();
        EXPECT_THAT(messages(), ElementsAre(testing::_, line, testing::_)) << bytes.size();
        EXPECT_EQ(records().size(), 1U);
    }
}

TEST_F(Controller, FramesDoNotDependOnDatagramBoundaries) {
    ASSERT_EQ(start(), 0);
    const Bytes one = frame(payload({{0, {{1, 2, 1}}}}));
    const Bytes two = frame(payload({{0, {{1, 2, 2}}}}));
    const Bytes three = frame(payload({{0, {{1, 2, 3}}}}));
    EXPECT_THAT(recordsOf(Bytes(50, 0x41) + one + Bytes(3, 0xDB) + two), ElementsAre("1; 1:3:10", "1; 1:3:20"));
    EXPECT_THAT(messages(), IsEmpty()) << "bytes between frames are skipped silently";

    receive(Bytes(one.begin(), one.begin() + 20));
    EXPECT_THAT(recordsOf(Bytes(one.begin() + 20, one.end())), ElementsAre("1; 1:3:10"));

    // A run in between loses the first half. The closing delimiter then opens a frame, and the following frames are
    // mis-cut until a pair of delimiters lines up.
    EXPECT_THAT(recordsOf(Bytes(one.begin(), one.begin() + 20)), IsEmpty());
    EXPECT_THAT(recordsOf(Bytes(one.begin() + 20, one.end()) + two + three), ElementsAre());
    EXPECT_THAT(messages(), ElementsAre("3 GetOneCompleteDataPacket error", "3 GetOneCompleteDataPacket error"));
    EXPECT_THAT(recordsOf(one), ElementsAre("1; 1:3:10")) << "the run ended between two frames";

    PathCounts counts = countsOf("1743");
    EXPECT_EQ(counts["bytes_cut"], 20 + 1U) << "the first half, and the closing delimiter of the last";
    EXPECT_EQ(counts["bytes_framed"] + counts["bytes_skipped"] + counts["bytes_cut"],
              4 * one.size() + 2 * two.size() + three.size() + 53);
}

TEST_F(Controller, FullRingDropsSingleBytes) {
    ASSERT_EQ(start(), 0);
    const Bytes one = frame(payload(ONE_LINK));
    receive(Bytes(RING_SIZE - one.size() + 3, 0x41));
    receive(one);
    EXPECT_EQ(messages(), std::vector<std::string>(3, "2 enqueue signal machine data error"));
    EXPECT_THAT(recordsOf({}), IsEmpty()) << "the frame lost its end";
    EXPECT_THAT(recordsOf(one), ElementsAre("1; 1:5:250"));
    EXPECT_EQ(countsOf("1743")["bytes_dropped"], 3U);
}

// Bytes that arrive while a run converts frames wrap around the end of the ring.
TEST_F(Controller, RingWrapsWhileARunEmptiesIt) {
    ASSERT_EQ(start(), 0);
    const auto numbered = [](size_t i) { return frame(payload({{0, {{1, 2, static_cast<uint8_t>(i % 250 + 1)}}}})); };
    constexpr size_t FRAMES = 2000; // some six times the ring
    size_t arrived = 0;
    const auto arrive = [&] { receive(numbered(arrived++)); };
    fakes::onRequest = [&] {
        if (arrived < FRAMES) {
            arrive();
        }
    };
    arrive();
    arrive();
    process();
    const std::vector<std::string> all = records();
    ASSERT_EQ(all.size(), FRAMES);
    for (size_t i = 0; i < FRAMES; i++) {
        ASSERT_EQ(all[i], "1; 1:3:" + std::to_string((i % 250 + 1) * 10));
    }
}

// ---- link

TEST_F(Controller, TurnsAbnormalAtTheEleventhTickWithoutFrame) {
    ASSERT_EQ(start(), 0);
    const auto tick = [] { fakes::tasks.at(0).run(); };
    recordsOf(frame(payload(ONE_LINK)));
    for (int beat = 1; beat <= 10; beat++) {
        tick();
        EXPECT_EQ(runStatus(), 1);
        recordsOf(frame(header(0x80))); // another kind of frame: no sign of life
        recordsOf(frame(payload(ONE_LINK), 1));
    }
    tick();
    EXPECT_EQ(runStatus(), 2);
    EXPECT_EQ(displayed(v2xspatconv_Display1743SignalInfo).at(1), "Signal machine(1743) works abnormally");
}

} // namespace
