// Packets of a capture: finds the UDP datagram in a packet, and builds the packet of a datagram or a DDS sample.
// docs/interfaces.md describes the packets of a DDS sample.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <vector>

#include "v2x/v2xpub.h"

namespace tools {

struct Datagram {
    uint64_t time = 0; // microseconds since 1970
    v2xpub_address_t source;
    v2xpub_address_t destination;
    std::span<const uint8_t> payload;
};

enum class PacketKind {
    datagram,
    other,     // not a UDP datagram over IPv4, or malformed
    fragment,  // part of a fragmented UDP datagram
    truncated, // the capture has only the first bytes of the packet
};

// Returns true for the link types that ParsePacket knows: Ethernet, Linux cooked version 1 and 2, raw IP, BSD loopback.
bool IsLinkTypeKnown(int linkType);

// Finds the UDP datagram in a packet; skips VLAN tags. `linkType` is a DLT_ constant of libpcap. If the result is
// PacketKind::datagram, fills `datagram` without its time; the payload is a part of `packet`. Does not check checksums:
// sent packets are captured before the network interface computes them.
PacketKind ParsePacket(int linkType, std::span<const uint8_t> packet, Datagram& datagram);

inline constexpr size_t MAX_UDP_PAYLOAD = 65507;

// Builds a packet of the link type "raw IP" with both checksums. The payload has at most MAX_UDP_PAYLOAD bytes.
std::vector<uint8_t> BuildPacket(const Datagram& datagram);

// A DDS sample of the daemon.
struct Sample {
    bool isSent; // true: the daemon has sent the sample; false: received
    std::string_view topic;
    std::span<const uint8_t> octets;
};
inline constexpr v2xpub_address_t SAMPLE_ADDRESS = {0x7F000001, 57399}; // source and destination of a sample's packet

// Returns the payload of the sample's packet. Uses the first 255 characters of the topic.
std::vector<uint8_t> EncodeSample(const Sample& sample);

// Returns the sample that the datagram carries, or an empty optional for any other datagram. Topic and octets are parts
// of the payload.
std::optional<Sample> ReadSample(const Datagram& datagram);

} // namespace tools
