// What the daemon sends to the stack application, counted by where it comes from: at the application's place, which
// answers as well, and on the wire, where nobody may listen.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <memory>
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

// Counts what a descriptor receives, on a thread of its own.
class Watcher {
public:
    Watcher() = default;
    virtual ~Watcher();
    Watcher(const Watcher&) = delete;
    Watcher& operator=(const Watcher&) = delete;
    Records records() const;
    uint64_t of(Source source) const { return m_records[source]; }

protected:
    void run(int fd);
    void stop(); // in each destructor, before what onFrame() uses is gone
    void count(const uint8_t* frame, size_t size);

private:
    // Takes one datagram.
    virtual void onReadable(int fd) = 0;
    std::array<std::atomic<uint64_t>, SOURCES> m_records{};
    std::atomic<bool> m_isEnding{false};
    std::thread m_thread;
};

// At the stack application's socket. A request is answered with a message of two intersections once answer() said so.
class StackDesk : public Watcher {
public:
    explicit StackDesk(const Peer& stack);
    ~StackDesk() override { stop(); }
    void answer(bool on) { m_answers = on; }
    uint64_t replies() const { return m_replies; }
    // Of the last one; the next request comes 0.6 s after that of its reply.
    std::chrono::steady_clock::time_point repliedAt() const { return m_repliedAt; }

private:
    void onReadable(int fd) override;
    Bytes m_reply;
    std::atomic<bool> m_answers{true};
    std::atomic<uint64_t> m_replies{0};
    std::atomic<std::chrono::steady_clock::time_point> m_repliedAt{};
};

// On the loop-back interface, for one UDP port. Needs CAP_NET_RAW.
class Wire : public Watcher {
public:
    explicit Wire(uint16_t port);
    ~Wire() override;
    const std::string& fault() const { return m_fault; } // why it cannot look; "" when it can

private:
    void onReadable(int fd) override;
    int m_fd;
    std::string m_fault;
};
