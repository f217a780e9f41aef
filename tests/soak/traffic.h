// The daemon from outside: the records at the stack application's socket, and the counters in its log.
#pragma once

#include <atomic>
#include <chrono>
#include <map>
#include <string>
#include <thread>

#include "report.h"
#include "unit.h"

// Who a record comes from.
enum Source { LEARNER, CONTROLLER, CLOUD, CYCLONE, UNKNOWN };

struct Stopwatch {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    int64_t ms() const { return (Clock::now() - start) / std::chrono::milliseconds(1); }
};

// Reads the stack application's socket on a thread of its own: counts records by source, and answers each request with
// a message of two intersections while answer() is on.
class StackDesk {
public:
    // `tell` finds the source of a record.
    StackDesk(UdpPeer& stack, Source (*tell)(const Bytes& record));
    uint64_t of(Source source) const { return m_counts[source]; }
    uint64_t all() const;
    void answer(bool on) { m_answers = on; }
    uint16_t requestPort() const { return m_requestPort; } // where requests come from; 0 before the first

private:
    void take(const Bytes& datagram);

    UdpPeer& m_stack;
    Source (*const m_tell)(const Bytes& record);
    std::atomic<uint64_t> m_counts[UNKNOWN + 1]{};
    std::atomic<bool> m_answers{true};
    std::atomic<uint16_t> m_requestPort{0};
    std::jthread m_thread; // last: it uses the others
};

// SIGTERM ends the daemon with status 0.
void checkStop(Unit& unit, Report& report);

// "path.name" and its count, from the daemon's last counter lines in all log files. A count of 0 is absent.
using Counts = std::map<std::string, uint64_t>;
Counts counts(const std::string& logPath);
uint64_t of(const Counts& counts, const std::string& name); // 0 when absent
