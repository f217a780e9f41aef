#include "v2xdds_transport.h"

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>
#include <sys/random.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <fastdds/rtps/transport/UDPv4TransportDescriptor.h>
#include <fastrtps/utils/IPLocator.h>
#include <memory>
#include <stdexcept>

namespace {

using eprosima::fastdds::rtps::UDPv4TransportDescriptor;
using eprosima::fastrtps::rtps::GuidPrefix_t;
using eprosima::fastrtps::rtps::IPLocator;
using eprosima::fastrtps::rtps::Locator_t;
using eprosima::fastrtps::rtps::LocatorList_t;
using eprosima::fastrtps::rtps::RTPSParticipantAttributes;

// Participants of one domain that find each other: so many ports are probed.
constexpr int32_t PEERS = 32;
// A port that another participant took since it was found free makes way for the next one up so often; from the 32nd
// pair on that ends at 65535 in domain 232.
constexpr uint32_t PORT_TRIES = 31;
// The kernel gives what it allows (net.core.rmem_max).
constexpr uint32_t SOCKET_BUFFER = 1048576;

constinit std::atomic<uint32_t> g_numbers{0}; // a bit for each that is taken

// The participant's name among its peers: the library would give one of the same number the same name again, and peers
// that remember the former one would take its samples for known ones.
GuidPrefix_t NewPrefix() {
    GuidPrefix_t prefix;
    if (getrandom(prefix.value, sizeof prefix.value, 0) != sizeof prefix.value) {
        throw std::runtime_error("no random numbers");
    }
    std::copy_n(eprosima::fastrtps::rtps::c_VendorId_eProsima.begin(), 2, prefix.value);
    return prefix;
}

// Port 0: the library takes the one of the participant's number.
LocatorList_t At(const std::string& address) {
    Locator_t locator;
    IPLocator::createLocator(LOCATOR_KIND_UDPv4, address, 0, locator);
    LocatorList_t list;
    list.push_back(locator);
    return list;
}

std::shared_ptr<UDPv4TransportDescriptor> UdpOn(const std::string& address) {
    auto udp = std::make_shared<UDPv4TransportDescriptor>();
    udp->interfaceWhiteList = {address}; // binds every socket to it, those for sending as well
    udp->maxInitialPeersRange = PEERS;
    udp->sendBufferSize = SOCKET_BUFFER;
    udp->receiveBufferSize = SOCKET_BUFFER;
    udp->non_blocking_send = true; // what does not fit is lost and asked for again
    udp->TTL = 0;
    return udp;
}

bool IsFree(const std::string& address, int32_t port) {
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_port = htons(static_cast<uint16_t>(port));
    inet_pton(AF_INET, address.c_str(), &local.sin_addr);
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

// RTPS 2.3, 9.6.1: one port for discovery and the next one for samples.
bool HasFreePorts(const std::string& address, int32_t domain, int32_t number) {
    const int32_t discovery = 7400 + 250 * domain + 10 + 2 * number;
    return IsFree(address, discovery) && IsFree(address, discovery + 1);
}

bool Claim(int32_t number) {
    const uint32_t bit = 1U << number;
    return (g_numbers.fetch_or(bit) & bit) == 0;
}

} // namespace

bool v2xdds_IsLoopback(const char* address) {
    in_addr wanted{};
    ifaddrs* interfaces = nullptr;
    if (inet_pton(AF_INET, address, &wanted) != 1 || getifaddrs(&interfaces) != 0) {
        return false;
    }
    const std::unique_ptr<ifaddrs, decltype(&freeifaddrs)> owner(interfaces, freeifaddrs);
    for (const ifaddrs* entry = interfaces; entry != nullptr; entry = entry->ifa_next) {
        if ((entry->ifa_flags & IFF_LOOPBACK) == 0 || entry->ifa_addr == nullptr ||
            entry->ifa_addr->sa_family != AF_INET) {
            continue;
        }
        sockaddr_in held{};
        std::memcpy(&held, entry->ifa_addr, sizeof held);
        if (held.sin_addr.s_addr == wanted.s_addr) {
            return true;
        }
    }
    return false;
}

v2xdds_number::v2xdds_number(const std::string& address, int32_t domain) : m_value(0) {
    while (m_value < PEERS && !(HasFreePorts(address, domain, m_value) && Claim(m_value))) {
        m_value++;
    }
    if (m_value == PEERS) {
        throw std::runtime_error("no free participant of 32: their ports on " + address + " are taken");
    }
}

v2xdds_number::~v2xdds_number() {
    g_numbers.fetch_and(~(1U << m_value));
}

RTPSParticipantAttributes v2xdds_ParticipantAttributes(const std::string& address, const v2xdds_number& number) {
    RTPSParticipantAttributes attributes;
    attributes.setName("v2xdds");
    attributes.participantID = number.Value();
    attributes.prefix = NewPrefix();
    attributes.useBuiltinTransports = false; // they are UDP on every interface, and shared memory
    attributes.userTransports.push_back(UdpOn(address));
    attributes.defaultUnicastLocatorList = At(address);

    auto& builtin = attributes.builtin;
    // A unicast list of one's own keeps the library from adding the multicast address of discovery.
    builtin.metatrafficUnicastLocatorList = At(address);
    builtin.initialPeersList = At(address);
    builtin.avoid_builtin_multicast = true;
    builtin.mutation_tries = PORT_TRIES;
    builtin.discovery_config.leaseDuration = {3, 0};
    builtin.discovery_config.leaseDuration_announcementperiod = {1, 0};
    return attributes;
}
