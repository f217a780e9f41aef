#include "stack_desk.h"

#include <arpa/inet.h>
#include <cerrno>
#include <cstring>
#include <linux/filter.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <net/if.h>
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
constexpr int BUFFER = 8 * 1024 * 1024;
constexpr int LOOK_MS = 50;

// SOURCES: none of them.
Source sourceOf(const uint8_t* frame, size_t size) {
    if (size <= PHASE_NUM_AT || frame[COMMAND_AT] != COMMAND || frame[TYPE_AT] != TYPE_RECORD) {
        return SOURCES;
    }
    if (frame[NODE_AT] == CLOUD_NODE) {
        return CLOUD;
    }
    const int phases = frame[PHASE_NUM_AT];
    return phases == LEARNER_PHASES ? LEARNER : phases == CONTROLLER_LINKS * CONTROLLER_GROUPS ? CONTROLLER : SOURCES;
}

} // namespace

Watcher::~Watcher() {
    stop();
}

void Watcher::run(int fd) {
    m_thread = std::thread([this, fd] {
        while (!m_isEnding) {
            pollfd in = {fd, POLLIN, 0};
            if (poll(&in, 1, LOOK_MS) == 1) {
                onReadable(fd);
            }
        }
    });
}

void Watcher::stop() {
    m_isEnding = true;
    if (m_thread.joinable()) {
        m_thread.join();
    }
}

void Watcher::count(const uint8_t* frame, size_t size) {
    const Source source = sourceOf(frame, size);
    if (source != SOURCES) {
        m_records[source]++;
    }
}

Records Watcher::records() const {
    Records now;
    std::copy(m_records.begin(), m_records.end(), now.begin());
    return now;
}

StackDesk::StackDesk(const Peer& stack) : m_reply(replyWith(hex(encoded::spat))) {
    run(stack.fd());
}

void StackDesk::onReadable(int fd) {
    uint8_t frame[65536];
    sockaddr_in sender = {};
    socklen_t length = sizeof sender;
    const ssize_t size = recvfrom(fd, frame, sizeof frame, 0, reinterpret_cast<sockaddr*>(&sender), &length);
    if (size == REQUEST_SIZE && frame[TYPE_AT] == TYPE_REQUEST) {
        if (m_answers && sendto(fd, m_reply.data(), m_reply.size(), 0, reinterpret_cast<const sockaddr*>(&sender),
                                length) == static_cast<ssize_t>(m_reply.size())) {
            m_repliedAt = std::chrono::steady_clock::now();
            m_replies++;
        }
    } else if (size > 0) {
        count(frame, static_cast<size_t>(size));
    }
}

Wire::Wire(uint16_t port) : m_fd(socket(AF_PACKET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
    // A packet starts with its IP header of 20 bytes: protocol at 9, destination port at 22.
    sock_filter code[] = {
        BPF_STMT(BPF_LD | BPF_B | BPF_ABS, 9),  BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, IPPROTO_UDP, 0, 3),
        BPF_STMT(BPF_LD | BPF_H | BPF_ABS, 22), BPF_JUMP(BPF_JMP | BPF_JEQ | BPF_K, port, 0, 1),
        BPF_STMT(BPF_RET | BPF_K, 65535),       BPF_STMT(BPF_RET | BPF_K, 0)};
    const sock_fprog filter = {std::size(code), code};
    sockaddr_ll address = {};
    address.sll_family = AF_PACKET;
    address.sll_protocol = htons(ETH_P_IP);
    address.sll_ifindex = static_cast<int>(if_nametoindex("lo"));
    if (m_fd < 0 || setsockopt(m_fd, SOL_SOCKET, SO_ATTACH_FILTER, &filter, sizeof filter) != 0 ||
        bind(m_fd, reinterpret_cast<sockaddr*>(&address), sizeof address) != 0) {
        m_fault = strerror(errno);
        return;
    }
    setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &BUFFER, sizeof BUFFER);
    run(m_fd);
}

Wire::~Wire() {
    stop();
    if (m_fd >= 0) {
        close(m_fd);
    }
}

// A packet on the loop-back interface is seen on its way out and on its way in.
void Wire::onReadable(int fd) {
    constexpr size_t HEADERS = 28; // IP and UDP
    uint8_t packet[65536];
    sockaddr_ll from = {};
    socklen_t length = sizeof from;
    const ssize_t size = recvfrom(fd, packet, sizeof packet, 0, reinterpret_cast<sockaddr*>(&from), &length);
    if (size > static_cast<ssize_t>(HEADERS) && from.sll_pkttype != PACKET_OUTGOING) {
        count(packet + HEADERS, static_cast<size_t>(size) - HEADERS);
    }
}
