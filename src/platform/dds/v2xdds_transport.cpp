#include "v2xdds_transport.h"

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <fastrtps/utils/IPLocator.h>
#include <memory>
#include <stdexcept>
#include <string>

namespace {

using eprosima::fastdds::rtps::UDPv4TransportDescriptor;
using eprosima::fastrtps::rtps::IPLocator;
using eprosima::fastrtps::rtps::Locator_t;
using eprosima::fastrtps::rtps::LocatorList_t;
using eprosima::fastrtps::rtps::RTPSParticipantAttributes;

// Maximum number of participants in one domain. Each participant sends its discovery data to this many port pairs.
constexpr int32_t MAX_PARTICIPANTS = 32;
// Additional ports that Fast DDS tries if another process binds the port after our check. The ports of the highest
// domain, 232, start at 65410: a larger value could exceed 65535.
constexpr uint32_t PORT_TRIES = 31;
// Requested size of a socket's buffers. The kernel clamps the size to net.core.rmem_max and net.core.wmem_max.
constexpr uint32_t SOCKET_BUFFER_BYTES = 1048576;
// Fast DDS drops a peer that stalls for longer than the lease, and some DDS implementations then fail to match the peer
// again. The lease is therefore much longer than any stall of a busy road-side unit.
constexpr int32_t LEASE_S = 20;
constexpr int32_t ANNOUNCEMENT_S = 1;

LocatorList_t LocatorListFor(int32_t port) {
    Locator_t locator;
    IPLocator::createLocator(LOCATOR_KIND_UDPv4, V2XDDS_ADDRESS, static_cast<uint32_t>(port), locator);
    LocatorList_t list;
    list.push_back(locator);
    return list;
}

std::shared_ptr<UDPv4TransportDescriptor> CreateUdpTransport() {
    auto udp = std::make_shared<UDPv4TransportDescriptor>();
    udp->interfaceWhiteList = {V2XDDS_ADDRESS}; // binds all sockets, send sockets included, to this address
    udp->maxInitialPeersRange = MAX_PARTICIPANTS;
    udp->sendBufferSize = SOCKET_BUFFER_BYTES;
    udp->receiveBufferSize = SOCKET_BUFFER_BYTES;
    // A datagram is dropped if the send buffer is full; the reader requests the sample again.
    udp->non_blocking_send = true;
    udp->TTL = 0;
    return udp;
}

bool IsPortFree(int32_t port) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, V2XDDS_ADDRESS, &local.sin_addr);
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        throw std::runtime_error(std::string("cannot create a UDP socket: ") + std::strerror(errno));
    }
    const int error = ::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 ? 0 : errno;
    ::close(fd);
    if (error != 0 && error != EADDRINUSE) {
        throw std::runtime_error("cannot bind port " + std::to_string(port) + ": " + std::strerror(error));
    }
    return error == 0;
}

// Finds the first port pair of the domain that is free and returns its first port, the discovery port.
int32_t FindDiscoveryPort(int32_t domain) {
    const int32_t first = 7400 + 250 * domain + 10; // RTPS 2.3, 9.6.1; each participant has two ports
    for (int32_t port = first; port < first + 2 * MAX_PARTICIPANTS; port += 2) {
        if (IsPortFree(port) && IsPortFree(port + 1)) {
            return port;
        }
    }
    throw std::runtime_error("all " + std::to_string(MAX_PARTICIPANTS) + " port pairs of domain " +
                             std::to_string(domain) + " are in use");
}

} // namespace

RTPSParticipantAttributes v2xdds_ParticipantAttributes(int32_t domain) {
    const int32_t port = FindDiscoveryPort(domain);
    RTPSParticipantAttributes attributes;
    attributes.setName("v2xdds");
    attributes.useBuiltinTransports = false; // disables the defaults: UDP on all interfaces, and shared memory
    attributes.userTransports.push_back(CreateUdpTransport());
    attributes.defaultUnicastLocatorList = LocatorListFor(port + 1);

    auto& builtin = attributes.builtin;
    // If this list is set, the participant does not add the multicast address for discovery.
    builtin.metatrafficUnicastLocatorList = LocatorListFor(port);
    // Fast DDS replaces port 0 by the discovery ports of all MAX_PARTICIPANTS port pairs of the domain.
    builtin.initialPeersList = LocatorListFor(0);
    builtin.avoid_builtin_multicast = true;
    builtin.mutation_tries = PORT_TRIES;
    builtin.discovery_config.leaseDuration = {LEASE_S, 0};
    builtin.discovery_config.leaseDuration_announcementperiod = {ANNOUNCEMENT_S, 0};
    return attributes;
}
