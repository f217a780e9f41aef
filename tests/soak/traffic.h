// Traffic through the daemon: the sources, and the stack application's socket.
#pragma once

#include <atomic>
#include <string>
#include <thread>

#include "report.h"
#include "unit.h"

// Who a record comes from.
enum Source { LEARNER, CONTROLLER, CLOUD, CYCLONE, UNKNOWN };

constexpr int LEARNER_PHASES = 3;
constexpr int CONTROLLER_LINKS = 4;
constexpr int CONTROLLER_GROUPS = 5;
constexpr int CLOUD_NODE = 77;
constexpr int CYCLONE_NODE = 78;

// Tells the traffic of startSource() apart.
Source sourceOf(const Bytes& record);

// Reads the stack application's socket on a thread of its own: counts records by source, and answers each request with
// a message of two intersections while answer() is on.
class StackDesk {
public:
    explicit StackDesk(UdpPeer& stack, Source (*tell)(const Bytes& record) = sourceOf);
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

// A simulator as the learner, the controller or the cloud, with this many inputs a second.
void startSource(Unit& unit, Source source, double rate);
uint64_t endSource(Unit& unit, Source source); // returns the number of inputs that it sent

// Documents that the unit's cloud simulator has shown since its start.
uint64_t documentsUp(const Unit& unit);
bool logToolAnswered(const Unit& unit);
// SIGTERM ends the daemon with status 0.
void checkStop(Unit& unit, Report& report);
