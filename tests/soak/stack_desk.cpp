#include "stack_desk.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

#include "encoded_frames.h"
#include "messages.h"

namespace {

constexpr size_t COMMAND_AT = 12;
constexpr size_t TYPE_AT = 17;
constexpr size_t NODE_AT = 28;
constexpr size_t PHASE_NUM_AT = 40;
constexpr size_t REQUEST_SIZE = 28;
constexpr uint8_t COMMAND = 20;
constexpr uint8_t TYPE_RECORD = 1;
constexpr uint8_t TYPE_REQUEST = 11;

void makeRoom(int fd) {
    const int size = 16 * 1024 * 1024;
    setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &size, sizeof size); // as far as this user may
}

} // namespace

Source sourceOf(const Bytes& record) {
    if (record.size() <= PHASE_NUM_AT || record[COMMAND_AT] != COMMAND || record[TYPE_AT] != TYPE_RECORD) {
        return SOURCES;
    }
    if (record[NODE_AT] == CLOUD_NODE) {
        return CLOUD;
    }
    const int phases = record[PHASE_NUM_AT];
    return phases == LEARNER_PHASES ? LEARNER : phases == CONTROLLER_LINKS * CONTROLLER_GROUPS ? CONTROLLER : SOURCES;
}

Reader::Reader(int fd, Take take) {
    m_thread = std::thread([this, fd, take = std::move(take)] {
        constexpr int LOOK_MS = 50; // for the end
        Bytes buffer(65536);
        while (!m_ends) {
            pollfd in = {fd, POLLIN, 0};
            if (poll(&in, 1, LOOK_MS) != 1) {
                continue;
            }
            sockaddr_in sender = {};
            socklen_t length = sizeof sender;
            const ssize_t size =
                recvfrom(fd, buffer.data(), buffer.size(), MSG_DONTWAIT, reinterpret_cast<sockaddr*>(&sender), &length);
            if (size > 0) {
                take({buffer.begin(), buffer.begin() + size}, sender);
            }
        }
    });
}

Reader::~Reader() {
    m_ends = true;
    m_thread.join();
}

StackDesk::StackDesk(const UdpPeer& stack, Tell tell)
    : m_fd(stack.fd()), m_tell(tell),
      m_reader(m_fd, [this](const Bytes& datagram, const sockaddr_in& sender) { take(datagram, sender); }) {
    makeRoom(m_fd);
}

Bytes StackDesk::last(Source source) const {
    const std::lock_guard lock(m_mutex);
    return m_last[source];
}

void StackDesk::take(const Bytes& datagram, const sockaddr_in& sender) {
    static const Bytes REPLY = replyWith(hex(encoded::spat));
    if (datagram.size() != REQUEST_SIZE || datagram[TYPE_AT] != TYPE_REQUEST) {
        const std::lock_guard lock(m_mutex);
        const Source source = datagram.size() > PHASE_NUM_AT ? m_tell(datagram) : SOURCES;
        m_last[source] = datagram;
        m_counts[source]++;
        return;
    }
    m_requestPort = ntohs(sender.sin_port);
    m_requests++;
    if (m_answers && sendto(m_fd, REPLY.data(), REPLY.size(), 0, reinterpret_cast<const sockaddr*>(&sender),
                            sizeof sender) == static_cast<ssize_t>(REPLY.size())) {
        m_replies++;
    }
}

Wire::Wire(uint16_t port) : m_fd(socket(AF_INET, SOCK_RAW | SOCK_CLOEXEC, IPPROTO_UDP)) {
    constexpr size_t PORT_AT = 22; // behind the head of IP and the sender's port
    constexpr size_t HEADS = 28;
    if (m_fd < 0) {
        m_fault = strerror(errno);
        return;
    }
    makeRoom(m_fd);
    m_reader.emplace(m_fd, [this, port](const Bytes& packet, const sockaddr_in& /*sender*/) {
        if (packet.size() > HEADS && packet[PORT_AT] * 256 + packet[PORT_AT + 1] == port) {
            m_counts[sourceOf({packet.begin() + HEADS, packet.end()})]++;
        }
    });
}

Wire::~Wire() {
    m_reader.reset();
    if (m_fd >= 0) {
        close(m_fd);
    }
}
