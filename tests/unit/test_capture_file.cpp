// Captures: packets and files, and the messages that the simulator replays from them.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <pcap/dlt.h>

#include "bytes.h"
#include "common/capture_file.h"
#include "replay.h"
#include "temp_folder.h"

using namespace std::chrono_literals;
using namespace tools;
using testing::ElementsAre;
using testing::ThrowsMessage;

namespace {

constexpr v2xpub_address_t LEARNER = {0xC0A80114, 8001};
constexpr v2xpub_address_t DAEMON = {0xC0A80101, 8002};
constexpr uint64_t TIME = 1732186138'683001;

// "012" from 192.168.1.20:8001 to 192.168.1.1:8002: IPv4 header, UDP header, payload.
const std::string PACKET = "45 00 001F 0000 4000 40 11 B768 C0A80114 C0A80101  1F41 1F42 000B DBBD  303132 ";
const std::string FILE_HEAD = "D4C3B2A1 0200 0400 00000000 00000000 FFFF0000 65000000 ";
const std::string PACKET_HEAD = "1A103F67 F96B0A00 1F000000 1F000000 ";

const std::string SECTION = "0A0D0D0A 1C000000 4D3C2B1A 0100 0000 FFFFFFFFFFFFFFFF 1C000000 ";
const std::string INTERFACE = "01000000 14000000 6500 0000 00000000 14000000 ";
const std::string ETHERNET = "01000000 14000000 0100 0000 00000000 14000000 ";
const std::string BLOCK_HEAD = "06000000 40000000 00000000 6A270600 79267B03 1F000000 1F000000 ";

class CaptureFile : public testing::Test {
protected:
    void write(const std::string& digits) const {
        const Bytes bytes = hex(digits);
        writeFile(m_path, {bytes.begin(), bytes.end()});
    }
    std::vector<std::string> read() const {
        std::vector<std::string> datagrams;
        ReadCapture(m_path, [&](const Datagram& datagram) {
            datagrams.push_back(std::to_string(datagram.time) + " " + std::to_string(datagram.destination.port) + " " +
                                std::string(datagram.payload.begin(), datagram.payload.end()));
        });
        return datagrams;
    }
    TempFolder m_folder;
    const std::string m_path = m_folder.path() + "/capture";
};

TEST_F(CaptureFile, WritesRawPacketsThatAreReadAgain) {
    const Bytes payload = hex("303132");
    CaptureWriter writer(m_path);
    EXPECT_EQ(readFile(m_path).size(), 24U); // a reader of a pipe starts with the head
    writer.Write({TIME, LEARNER, DAEMON, payload});
    const Bytes expected = hex(FILE_HEAD + PACKET_HEAD + PACKET);
    EXPECT_EQ(readFile(m_path), std::string(expected.begin(), expected.end())); // flushed
    EXPECT_THAT(read(), ElementsAre("1732186138683001 8002 012"));
    write(FILE_HEAD + PACKET_HEAD + PACKET + PACKET_HEAD + "45"); // of a killed tcpdump
    EXPECT_THAT(read(), ElementsAre("1732186138683001 8002 012"));
    write(SECTION + INTERFACE + BLOCK_HEAD + PACKET + "00 40000000"); // pcapng
    EXPECT_THAT(read(), ElementsAre("1732186138683001 8002 012"));
    const Bytes packet = BuildPacket({0, LEARNER, DAEMON, hex("3DF1")}); // a checksum of 0 is written as FFFF
    EXPECT_EQ(Bytes(packet.begin() + 26, packet.end()), hex("FFFF 3DF1"));
}

TEST_F(CaptureFile, NamesTheFileInEachError) {
    const std::pair<std::string, std::string> rows[] = {
        {SECTION + INTERFACE + ETHERNET + BLOCK_HEAD + PACKET + "00 40000000", "different from the type of the first"},
        {FILE_HEAD.substr(0, FILE_HEAD.find("65")) + "69000000", "link type 105 is not supported"},
        {"30313233", "unknown file format"},
        {FILE_HEAD + PACKET_HEAD + "45", "truncated dump file"},
    };
    for (const auto& [digits, reason] : rows) {
        write(digits);
        EXPECT_THAT([&] { read(); }, ThrowsMessage<std::runtime_error>(testing::AllOf(
                                         testing::StartsWith(m_path + ": "), testing::HasSubstr(reason))));
    }
    const std::string missing = m_folder.path() + "/missing";
    EXPECT_THAT([&] { ReadCapture(missing, {}); },
                ThrowsMessage<std::runtime_error>(missing + ": cannot be opened: No such file or directory"));
}

PacketKind parse(int linkType, const Bytes& packet) {
    Datagram datagram;
    const PacketKind kind = ParsePacket(linkType, packet, datagram);
    if (kind == PacketKind::datagram) {
        EXPECT_EQ(Bytes(datagram.payload.begin(), datagram.payload.end()), hex("303132"));
        EXPECT_EQ(std::tie(datagram.source.ip, datagram.source.port), std::tie(LEARNER.ip, LEARNER.port));
        EXPECT_EQ(std::tie(datagram.destination.ip, datagram.destination.port), std::tie(DAEMON.ip, DAEMON.port));
    }
    return kind;
}

TEST(CapturePacket, FindsTheDatagramBehindEachLinkHead) {
    const std::string mac = "020000000001 020000000002 ";
    const std::pair<int, std::string> rows[] = {
        {DLT_EN10MB, mac + "0800"},
        {DLT_EN10MB, mac + "8100 000A 0800"},
        {DLT_EN10MB, mac + "88A8 0014 8100 000A 0800"},
        {DLT_LINUX_SLL, "0000 0001 0006 0200000000010000 0800"},
        {DLT_LINUX_SLL, "0000 0001 0006 0200000000010000 8100 000A 0800"},
        {DLT_LINUX_SLL2, "0800 0000 00000002 0001 00 06 0200000000010000"},
        {DLT_NULL, "02000000"},
        {DLT_LOOP, "00000002"},
        {DLT_RAW, ""},
        {DLT_IPV4, ""},
    };
    for (const auto& [linkType, head] : rows) {
        const Bytes whole = hex(head + PACKET);
        EXPECT_EQ(parse(linkType, whole), PacketKind::datagram) << head;
        EXPECT_EQ(parse(linkType, hex(head + PACKET + "0000")), PacketKind::datagram) << "padded: " << head;
        for (size_t size = 0; size < whole.size(); size++) {
            const bool hasIp = size > hex(head).size();
            EXPECT_EQ(parse(linkType, Bytes(whole.begin(), whole.begin() + static_cast<ptrdiff_t>(size))),
                      hasIp ? PacketKind::truncated : PacketKind::other)
                << head << size;
        }
    }
}

TEST(CapturePacket, IgnoresWhatIsNoWholeDatagram) {
    const std::string addresses = "C0A80114 C0A80101 ";
    const std::tuple<PacketKind, int, std::string> rows[] = {
        {PacketKind::other, DLT_EN10MB, "020000000001 020000000002 0806" + PACKET},
        {PacketKind::other, DLT_USER0, PACKET},
        {PacketKind::other, DLT_RAW, "60" + PACKET.substr(2)},                                           // IPv6
        {PacketKind::other, DLT_RAW, "45 00 001F 0000 4000 40 06 0000 " + addresses + "1F41 1F42 000B"}, // TCP
        {PacketKind::other, DLT_RAW, "44" + PACKET.substr(2)}, // IP header of 16 bytes
        {PacketKind::other, DLT_RAW, "45 00 001B 0000 4000 40 11 0000 " + addresses + "1F41 1F42 0008 00"},
        {PacketKind::other, DLT_RAW, "45 00 001F 0000 4000 40 11 0000 " + addresses + "1F41 1F42 000C 0000 303132"},
        {PacketKind::other, DLT_RAW, "45 00 001F 0000 4000 40 11 0000 " + addresses + "1F41 1F42 0007 0000 303132"},
        {PacketKind::fragment, DLT_RAW, "45 00 001F 0000 2000 40 11 0000 " + addresses + "1F41 1F42 000B 0000 303132"},
        {PacketKind::fragment, DLT_RAW, "45 00 001F 0000 0001 40 11 0000 " + addresses + "1F41 1F42 000B 0000 303132"},
        {PacketKind::datagram, DLT_RAW,
         "46 00 0023 0000 4000 40 11 0000 " + addresses + "01010100 1F41 1F42 000B 0000 303132"}, // IP options
    };
    for (const auto& [kind, linkType, packet] : rows) {
        EXPECT_EQ(parse(linkType, hex(packet)), kind) << packet;
    }
    EXPECT_EQ(DescribeIgnored({7, 3, 0, 1}), "3 other packets, 1 truncated packet ignored");
    EXPECT_EQ(DescribeIgnored({7, 0, 0, 0}), "");
}

TEST(CapturePacket, CarriesSamplesInTheirOwnFormat) {
    const Bytes octets = hex("30");
    const std::string head = "56 32 58 44 44 53 01 03 61 2F 62 ";
    EXPECT_EQ(EncodeSample({false, "a/b", octets}), hex(head + "00 30"));
    EXPECT_EQ(EncodeSample({true, "a/b", octets}), hex(head + "01 30"));
    const Bytes payload = hex(head + "01 30");
    EXPECT_FALSE(ReadSample({0, SAMPLE_ADDRESS, DAEMON, payload}).has_value());
    for (size_t size = 0; size < payload.size() - 1; size++) {
        const Bytes part(payload.begin(), payload.begin() + static_cast<ptrdiff_t>(size));
        EXPECT_FALSE(ReadSample({0, SAMPLE_ADDRESS, SAMPLE_ADDRESS, part}).has_value()) << size;
    }
}

// ---- replay

TEST_F(CaptureFile, ReplaysTheDatagramsToOnePort) {
    CaptureWriter writer(m_path);
    const std::tuple<uint16_t, Bytes> packets[] = {{9, {0}}, {8002, {1}}, {9, {2}}, {8002, {}}, {8002, {4}}};
    for (const auto& [port, payload] : packets) {
        writer.Write({TIME, LEARNER, {DAEMON.ip, port}, payload});
    }
    const auto messages = sim::LoadDatagrams(m_path, 8002);
    ASSERT_EQ(messages.size(), 2U); // without the empty one
    EXPECT_EQ(messages[0].time, TIME);
    EXPECT_EQ(messages[0].bytes, Bytes{1});
    EXPECT_EQ(messages[1].bytes, Bytes{4});
    EXPECT_THAT([&] { sim::LoadDatagrams(m_path, 9002); },
                ThrowsMessage<std::runtime_error>(
                    m_path + ": no datagram to port 9002; it has datagrams to the ports 9 (2), 8002 (3)"));
}

TEST(Replay, KeepsTheTimingOfTheCapture) {
    const std::vector<sim::ReplayMessage> messages = {
        {TIME, "", {0}}, {TIME + 40000, "", {1}}, {TIME + 10000, "", {2}}, {TIME + 60000, "", {3}}};
    const auto dueTimes = [&](double speed, bool isLooped) {
        sim::ReplaySource source(messages, speed, isLooped);
        std::vector<std::chrono::nanoseconds> times;
        for (auto due = source.DueTime(0s); due && times.size() < 5; due = source.DueTime(0s)) {
            times.push_back(*due);
            source.TakeNext();
        }
        return times;
    };
    EXPECT_THAT(dueTimes(1, false), ElementsAre(0ms, 40ms, 40ms, 60ms)); // the clock stepped back
    EXPECT_THAT(dueTimes(2, true), ElementsAre(0ms, 20ms, 20ms, 30ms, 40ms));
}

} // namespace
