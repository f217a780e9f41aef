// What the daemon does, seen at its ends: reports that become records, documents that become records, replies that
// become documents.
#pragma once

#include <atomic>
#include <mutex>
#include <string>
#include <thread>

#include "unit.h"

// Holds the learner's and the stack application's places, and answers the daemon's requests.
class Work {
public:
    explicit Work(Unit& unit);
    ~Work();
    Work(const Work&) = delete;
    Work& operator=(const Work&) = delete;

    // The simulator in the cloud's place, anew.
    void startCloud(std::vector<std::string> arguments);
    void endCloud();

    // One more of each comes through; a report is sent for it. False at once when the daemon is gone.
    bool reportArrives(int milliseconds = 10000);
    bool documentArrives(int milliseconds = 10000);
    bool replyArrives(int milliseconds = 10000);
    // "" when all three do, else which do not.
    std::string missing(int milliseconds = 10000);

    // Since the start. Documents and status records are those that the cloud's simulator has seen since its own; the
    // topic of the latter is everybody's, and those of this daemon are told by their counts.
    uint64_t documents() const { return m_documents; }
    uint64_t requests() const { return m_requests; }
    uint64_t heartbeats() const { return m_heartbeats; }
    uint64_t documentsUp() { return (readCloud(), m_documentsUp); }
    uint64_t available() { return (readCloud(), m_available); }
    uint64_t unavailable() { return (readCloud(), m_unavailable); }
    // The last record of a report.
    Bytes lastRecord() const;
    void sendReport();
    void sendFrame(); // of the controller

private:
    void run();
    void takeFromStack();
    void takeRecord(const Bytes& frame);
    void readCloud();
    bool isOwnStatus(const std::string& line) const;

    Unit& m_unit;
    std::atomic<bool> m_ends{false};
    std::atomic<uint64_t> m_documents{0};
    std::atomic<uint64_t> m_requests{0};
    std::atomic<uint64_t> m_heartbeats{0};
    uint64_t m_documentsUp = 0;
    uint64_t m_available = 0;
    uint64_t m_unavailable = 0;
    size_t m_cloudRead = 0;
    bool m_hasCloud = false;
    uint8_t m_seconds = 0; // of the last report
    uint64_t m_reportsSent = 0;
    uint64_t m_framesSent = 0;
    mutable std::mutex m_mutex;
    Bytes m_lastRecord; // guarded by it
    std::thread m_thread;
};
