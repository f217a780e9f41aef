// What the daemon sends to the stack application, counted by where it comes from: at the application's place, which
// answers as well, and on the wire, where nobody may listen.
#pragma once

#include <array>
#include <atomic>
#include <functional>
#include <mutex>
#include <netinet/in.h>
#include <optional>
#include <string>
#include <thread>

#include "unit.h"

enum Source { LEARNER, CONTROLLER, CLOUD, SOURCES };
using Records = std::array<uint64_t, SOURCES>;

// What tells them apart in a record: these make the traffic.
constexpr int LEARNER_PHASES = 3;
constexpr int CONTROLLER_LINKS = 4;
constexpr int CONTROLLER_GROUPS = 5;
constexpr int CLOUD_NODE = 77;

// Records that have come, by source.
class Arrived {
public:
    uint64_t of(Source source) const { return m_counts[source]; }
    Records records() const { return {of(LEARNER), of(CONTROLLER), of(CLOUD)}; }
    uint64_t all() const { return of(LEARNER) + of(CONTROLLER) + of(CLOUD) + of(SOURCES); }

protected:
    std::atomic<uint64_t> m_counts[SOURCES + 1]{}; // the last: of none
};

// Where a record comes from; SOURCES: from none of them.
using Tell = Source (*)(const Bytes& record);
Source sourceOf(const Bytes& record);

// Hands each datagram of a socket to a function, on a thread of its own, for the life of this.
class Reader {
public:
    using Take = std::function<void(const Bytes& datagram, const sockaddr_in& sender)>;
    Reader(int fd, Take take);
    ~Reader();
    Reader(const Reader&) = delete;
    Reader& operator=(const Reader&) = delete;

private:
    std::atomic<bool> m_ends{false};
    std::thread m_thread;
};

// At the stack application's socket. A request is answered with a message of two intersections, unless answer() says
// no.
class StackDesk : public Arrived {
public:
    explicit StackDesk(const UdpPeer& stack, Tell tell = sourceOf);
    Bytes last(Source source) const; // record of it
    void answer(bool on) { m_answers = on; }
    uint64_t requests() const { return m_requests; }
    uint64_t replies() const { return m_replies; }
    uint16_t requestPort() const { return m_requestPort; } // where they come from; 0 until one has come

private:
    void take(const Bytes& datagram, const sockaddr_in& sender);
    const int m_fd;
    const Tell m_tell;
    std::atomic<bool> m_answers{true};
    std::atomic<uint64_t> m_requests{0};
    std::atomic<uint64_t> m_replies{0};
    std::atomic<uint16_t> m_requestPort{0};
    mutable std::mutex m_mutex;
    Bytes m_last[SOURCES + 1]; // guarded by it
    Reader m_reader;
};

// On the loop-back interface, for one UDP port. Needs CAP_NET_RAW.
class Wire : public Arrived {
public:
    explicit Wire(uint16_t port);
    ~Wire();
    Wire(const Wire&) = delete;
    Wire& operator=(const Wire&) = delete;
    const std::string& fault() const { return m_fault; } // why it cannot look; "" when it can

private:
    const int m_fd;
    std::string m_fault;
    std::optional<Reader> m_reader;
};
