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

// Participants of one domain that find each other: the number of port pairs that each probes.
constexpr int32_t PEERS = 32;
// Further ports that Fast DDS tries if another process takes the port in the meantime. More could exceed 65535 in the
// highest domain.
constexpr uint32_t PORT_TRIES = 31;
// Bytes of a socket's buffer; the kernel clamps it to net.core.rmem_max and wmem_max.
constexpr uint32_t SOCKET_BUFFER = 1048576;
// A peer that stalls for longer is dropped, and implementations sometimes fail to match it again. So the lease is far
// above the stalls of a busy unit.
constexpr int32_t LEASE_S = 20;
constexpr int32_t ANNOUNCEMENT_S = 1;

LocatorList_t LocatorAt(int32_t port) {
    Locator_t locator;
    IPLocator::createLocator(LOCATOR_KIND_UDPv4, V2XDDS_ADDRESS, static_cast<uint32_t>(port), locator);
    LocatorList_t list;
    list.push_back(locator);
    return list;
}

std::shared_ptr<UDPv4TransportDescriptor> Udp() {
    auto udp = std::make_shared<UDPv4TransportDescriptor>();
    udp->interfaceWhiteList = {V2XDDS_ADDRESS}; // binds every socket, also those for sending
    udp->maxInitialPeersRange = PEERS;
    udp->sendBufferSize = SOCKET_BUFFER;
    udp->receiveBufferSize = SOCKET_BUFFER;
    udp->non_blocking_send = true; // a datagram that does not fit is lost; the reader requests it again
    udp->TTL = 0;
    return udp;
}

bool IsFree(int32_t port) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, V2XDDS_ADDRESS, &local.sin_addr);
    const int fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (fd < 0) {
        throw std::runtime_error(std::string("no socket: ") + std::strerror(errno));
    }
    const int error = ::bind(fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 ? 0 : errno;
    ::close(fd);
    if (error != 0 && error != EADDRINUSE) {
        throw std::runtime_error("port " + std::to_string(port) + ": " + std::strerror(error));
    }
    return error == 0;
}

// The discovery port of the first participant whose two ports are free.
int32_t FreeDiscoveryPort(int32_t domain) {
    const int32_t first = 7400 + 250 * domain + 10; // RTPS 2.3, 9.6.1: two ports a participant
    for (int32_t port = first; port < first + 2 * PEERS; port += 2) {
        if (IsFree(port) && IsFree(port + 1)) {
            return port;
        }
    }
    throw std::runtime_error("the ports of all " + std::to_string(PEERS) + " participants are taken");
}

} // namespace

RTPSParticipantAttributes v2xdds_ParticipantAttributes(int32_t domain) {
    const int32_t port = FreeDiscoveryPort(domain);
    RTPSParticipantAttributes attributes;
    attributes.setName("v2xdds");
    attributes.useBuiltinTransports = false; // UDP on every interface, and shared memory
    attributes.userTransports.push_back(Udp());
    attributes.defaultUnicastLocatorList = LocatorAt(port + 1);

    auto& builtin = attributes.builtin;
    // With a unicast list of its own the participant does not add the multicast address of discovery.
    builtin.metatrafficUnicastLocatorList = LocatorAt(port);
    builtin.initialPeersList = LocatorAt(0); // the discovery ports of the domain's first PEERS participants
    builtin.avoid_builtin_multicast = true;
    builtin.mutation_tries = PORT_TRIES;
    builtin.discovery_config.leaseDuration = {LEASE_S, 0};
    builtin.discovery_config.leaseDuration_announcementperiod = {ANNOUNCEMENT_S, 0};
    return attributes;
}
