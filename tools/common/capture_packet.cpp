#include "common/capture_packet.h"

#include <algorithm>
#include <iterator>
#include <pcap/dlt.h>

namespace tools {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr int NO_PROTOCOL = -1;

struct LinkType {
    int type;
    size_t headSize;
    int protocolAt; // offset of the EtherType in the head, or NO_PROTOCOL
};
constexpr LinkType LINK_TYPES[] = {
    {DLT_EN10MB, 14, 12},       {DLT_LINUX_SLL, 16, 14},    {DLT_LINUX_SLL2, 20, 0},    {DLT_RAW, 0, NO_PROTOCOL},
    {DLT_IPV4, 0, NO_PROTOCOL}, {DLT_NULL, 4, NO_PROTOCOL}, {DLT_LOOP, 4, NO_PROTOCOL},
};

constexpr uint16_t ETHERTYPE_IP = 0x0800;
constexpr uint16_t ETHERTYPES_VLAN[] = {0x8100, 0x88A8, 0x9100};
constexpr size_t VLAN_TAG_SIZE = 4;

constexpr uint8_t IP_VERSION = 4;
constexpr size_t IP_HEAD_SIZE = 20;
constexpr uint8_t PROTOCOL_UDP = 17;
constexpr uint16_t FRAGMENT_BITS = 0x3FFF; // more fragments, and the offset
constexpr size_t UDP_HEAD_SIZE = 8;

constexpr uint8_t SAMPLE_MAGIC[] = {'V', '2', 'X', 'D', 'D', 'S', 1};

uint16_t Get16(Bytes bytes, size_t at) {
    return static_cast<uint16_t>(bytes[at] << 8 | bytes[at + 1]);
}

uint32_t Get32(Bytes bytes, size_t at) {
    return uint32_t{Get16(bytes, at)} << 16 | Get16(bytes, at + 2);
}

void Put16(std::vector<uint8_t>& bytes, size_t at, size_t value) {
    bytes[at] = static_cast<uint8_t>(value >> 8);
    bytes[at + 1] = static_cast<uint8_t>(value);
}

void Put32(std::vector<uint8_t>& bytes, size_t at, uint32_t value) {
    Put16(bytes, at, value >> 16);
    Put16(bytes, at + 2, value & 0xFFFF);
}

const LinkType* FindLinkType(int type) {
    const auto row = std::ranges::find(LINK_TYPES, type, &LinkType::type);
    return row != std::end(LINK_TYPES) ? row : nullptr;
}

// Returns the bytes after the head of the link and the VLAN tags. Returns no bytes for another protocol than IPv4.
Bytes SkipLinkHead(const LinkType& link, Bytes packet) {
    if (packet.size() < link.headSize) {
        return {};
    }
    Bytes rest = packet.subspan(link.headSize);
    if (link.protocolAt == NO_PROTOCOL) {
        return rest;
    }
    uint16_t protocol = Get16(packet, static_cast<size_t>(link.protocolAt));
    while (std::ranges::find(ETHERTYPES_VLAN, protocol) != std::end(ETHERTYPES_VLAN) && rest.size() >= VLAN_TAG_SIZE) {
        protocol = Get16(rest, 2);
        rest = rest.subspan(VLAN_TAG_SIZE);
    }
    return protocol == ETHERTYPE_IP ? rest : Bytes{};
}

// Finds the datagram in the payload of an IPv4 packet.
PacketKind ParseUdp(Bytes udp, Datagram& datagram) {
    const size_t size = udp.size() >= UDP_HEAD_SIZE ? Get16(udp, 4) : 0;
    if (size < UDP_HEAD_SIZE || size > udp.size()) {
        return PacketKind::other;
    }
    datagram.source.port = Get16(udp, 0);
    datagram.destination.port = Get16(udp, 2);
    datagram.payload = udp.subspan(UDP_HEAD_SIZE, size - UDP_HEAD_SIZE);
    return PacketKind::datagram;
}

// Adds the 16-bit words of the bytes; an odd number of bytes is padded with 0.
uint32_t AddWords(Bytes bytes, uint32_t sum) {
    for (size_t at = 0; at < bytes.size(); at++) {
        sum += at % 2 == 0 ? uint32_t{bytes[at]} << 8 : bytes[at];
    }
    return sum;
}

// Returns the Internet checksum (RFC 1071) of the words' sum.
uint16_t FoldChecksum(uint32_t sum) {
    while (sum > 0xFFFF) {
        sum = (sum & 0xFFFF) + (sum >> 16);
    }
    return static_cast<uint16_t>(~sum);
}

} // namespace

bool IsLinkTypeKnown(int linkType) {
    return FindLinkType(linkType) != nullptr;
}

PacketKind ParsePacket(int linkType, Bytes packet, Datagram& datagram) {
    const LinkType* const link = FindLinkType(linkType);
    const Bytes ip = link != nullptr ? SkipLinkHead(*link, packet) : Bytes{};
    if (ip.empty() || ip[0] >> 4 != IP_VERSION) {
        return PacketKind::other;
    }
    if (ip.size() < IP_HEAD_SIZE) {
        return PacketKind::truncated;
    }
    const size_t headSize = size_t{ip[0] & 0xFU} * 4;
    const size_t size = Get16(ip, 2);
    if (headSize < IP_HEAD_SIZE || size < headSize || ip[9] != PROTOCOL_UDP) {
        return PacketKind::other;
    }
    if ((Get16(ip, 6) & FRAGMENT_BITS) != 0) {
        return PacketKind::fragment;
    }
    if (size > ip.size()) {
        return PacketKind::truncated;
    }
    datagram.source.ip = Get32(ip, 12);
    datagram.destination.ip = Get32(ip, 16);
    return ParseUdp(ip.subspan(headSize, size - headSize), datagram);
}

std::vector<uint8_t> BuildPacket(const Datagram& datagram) {
    constexpr uint8_t TIME_TO_LIVE = 64;
    constexpr uint16_t DO_NOT_FRAGMENT = 0x4000;
    const Bytes payload = datagram.payload.first(std::min(datagram.payload.size(), MAX_UDP_PAYLOAD));
    const size_t udpSize = UDP_HEAD_SIZE + payload.size();
    std::vector<uint8_t> packet(IP_HEAD_SIZE + UDP_HEAD_SIZE);
    packet[0] = IP_VERSION << 4 | IP_HEAD_SIZE / 4;
    Put16(packet, 2, IP_HEAD_SIZE + udpSize);
    Put16(packet, 6, DO_NOT_FRAGMENT);
    packet[8] = TIME_TO_LIVE;
    packet[9] = PROTOCOL_UDP;
    Put32(packet, 12, datagram.source.ip);
    Put32(packet, 16, datagram.destination.ip);
    Put16(packet, 10, FoldChecksum(AddWords(packet, 0)));
    Put16(packet, IP_HEAD_SIZE, datagram.source.port);
    Put16(packet, IP_HEAD_SIZE + 2, datagram.destination.port);
    Put16(packet, IP_HEAD_SIZE + 4, udpSize);
    packet.insert(packet.end(), payload.begin(), payload.end());
    // The checksum of UDP covers both addresses, the protocol and the length as well.
    const uint32_t pseudoHead = AddWords(Bytes(packet).subspan(12, 8), PROTOCOL_UDP + static_cast<uint32_t>(udpSize));
    const uint16_t checksum = FoldChecksum(AddWords(Bytes(packet).subspan(IP_HEAD_SIZE), pseudoHead));
    Put16(packet, IP_HEAD_SIZE + 6, checksum != 0 ? checksum : 0xFFFF);
    return packet;
}

std::vector<uint8_t> EncodeSample(const Sample& sample) {
    const std::string_view topic = sample.topic.substr(0, UINT8_MAX);
    std::vector<uint8_t> bytes(std::begin(SAMPLE_MAGIC), std::end(SAMPLE_MAGIC));
    bytes.push_back(static_cast<uint8_t>(topic.size()));
    bytes.insert(bytes.end(), topic.begin(), topic.end());
    bytes.push_back(sample.isSent ? 1 : 0);
    bytes.insert(bytes.end(), sample.octets.begin(), sample.octets.end());
    return bytes;
}

std::optional<Sample> ReadSample(const Datagram& datagram) {
    constexpr size_t TOPIC_AT = sizeof SAMPLE_MAGIC + 1;
    const Bytes bytes = datagram.payload;
    if (datagram.source.port != SAMPLE_ADDRESS.port || datagram.destination.port != SAMPLE_ADDRESS.port ||
        bytes.size() < TOPIC_AT || !std::ranges::equal(bytes.first(sizeof SAMPLE_MAGIC), SAMPLE_MAGIC)) {
        return std::nullopt;
    }
    const size_t topicSize = bytes[sizeof SAMPLE_MAGIC];
    if (bytes.size() <= TOPIC_AT + topicSize) {
        return std::nullopt;
    }
    const Bytes topic = bytes.subspan(TOPIC_AT, topicSize);
    return Sample{bytes[TOPIC_AT + topicSize] != 0,
                  {reinterpret_cast<const char*>(topic.data()), topic.size()},
                  bytes.subspan(TOPIC_AT + topicSize + 1)};
}

} // namespace tools
