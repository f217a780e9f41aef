// What the daemon does, seen at its ends: reports that become records, documents that become records, replies that
// become documents.
#pragma once

#include <atomic>
#include <fcntl.h>
#include <mutex>
#include <new>
#include <string>
#include <sys/mman.h>
#include <thread>
#include <unistd.h>

#include "preload/control.h"
#include "unit.h"

// The file that a plan shares with a preloaded library, in a unit's work folder.
template <typename Control>
class Shared {
public:
    explicit Shared(const TempFolder& folder) : m_path(folder.path() + "/" + Control::VARIABLE) {
        const int fd = open(m_path.c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0644);
        const bool sized = ftruncate(fd, sizeof(Control)) == 0;
        m_place = sized ? mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0) : MAP_FAILED;
        close(fd);
        if (m_place == MAP_FAILED) {
            throw std::bad_alloc();
        }
    }
    ~Shared() { munmap(m_place, sizeof(Control)); }
    Shared(const Shared&) = delete;
    Shared& operator=(const Shared&) = delete;
    Control* operator->() const { return static_cast<Control*>(m_place); }
    const std::string& path() const { return m_path; }
    // For Unit::start(): `library` looks at this file.
    std::vector<std::string> environment(const std::string& library) const {
        return {"LD_PRELOAD=" V2X_PRELOAD "/" + library + ".so", std::string(Control::VARIABLE) + "=" + m_path};
    }

private:
    std::string m_path;
    void* m_place;
};

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
