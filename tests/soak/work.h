// What the daemon does, seen at its ends: reports that become records, documents that become records, replies that
// become documents.
#pragma once

#include <string>

#include "faults.h"
#include "stack_desk.h"

// Holds the places of the learner, the controller and the stack application. The counts are since the start.
class Work {
public:
    explicit Work(Unit& unit) : m_unit(unit), m_desk(unit.stack) {}

    // The simulator in the cloud's place, anew.
    void startCloud(std::vector<std::string> arguments);
    void endCloud();

    // One more of each comes through; a report or a frame is sent for it. False at once when the daemon is gone.
    bool reportArrives(int milliseconds = 10000);
    bool frameArrives(int milliseconds = 10000) const;
    bool documentArrives(int milliseconds = 10000) const;
    bool replyArrives(int milliseconds = 10000) const;
    // "" when all three do, else which do not.
    std::string missing(int milliseconds = 10000);

    uint64_t documents() const { return m_desk.of(CLOUD); }
    uint64_t requests() const { return m_desk.requests(); }
    uint64_t heartbeats();
    Bytes lastRecord() const { return m_desk.last(LEARNER); } // of a report
    void sendReport();
    void sendFrame() const; // of the controller

private:
    bool wait(int milliseconds, const std::function<bool()>& condition) const;
    Unit& m_unit;
    StackDesk m_desk;
    uint64_t m_heartbeats = 0;
    bool m_hasCloud = false;
    uint8_t m_seconds = 0; // of the last report
};

// A daemon whose calls can fail.
struct Bench {
    Unit unit;
    Faults faults{unit.folder};
    Work work{unit};
};
