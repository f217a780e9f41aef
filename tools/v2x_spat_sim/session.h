// What the runs of all roles share: options, seed, output, waiting, the end by a limit or a signal, and the summary.
#pragma once

#include <chrono>
#include <cstdint>
#include <cstdio>
#include <mutex>
#include <optional>
#include <string>

#include "summary.h"

namespace sim {

using Clock = std::chrono::steady_clock;

struct RunOptions {
    double seconds = 0;      // length of the run; 0 = no limit
    uint64_t count = 0;      // messages of the run; 0 = no limit
    bool quiet = false;      // print only the summary and the seed
    bool json = false;       // standard output is for programs; lines for people go to standard error
    std::string summaryFile; // also gets the summary as JSON, unless empty
    std::optional<uint32_t> seed;
};

// Make it before any thread starts: from then on SIGINT and SIGTERM only end the run, and a closed pipe is a write
// error without a signal.
class Session {
public:
    // `random` names what the seed decides; empty: nothing. The options must outlive the session. Throws
    // std::system_error.
    Session(std::string role, const RunOptions& options, std::string random);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // The given seed, or a random one.
    uint32_t Seed() const { return m_seed; }

    // Note, Print and Stop may be called on any thread; the other functions on the main thread only. A failed write to
    // standard output ends the run.

    // Writes a line for people, unless the run is quiet.
    void Note(const std::string& line);
    // Writes a line of results to standard output, unless the run is quiet.
    void Print(const std::string& line);
    // Ends the run.
    void Stop();

    // Prints the first lines: "role: what", and the seed where it decides something.
    void Announce(const std::string& what);
    // Waits until the deadline (Clock::time_point::max(): for ever) and returns true. Returns false at once after Stop,
    // SIGINT or SIGTERM, even when the deadline has passed.
    bool WaitUntil(Clock::time_point deadline);
    // Prints "role: " and the summary, and writes its file. Throws std::runtime_error when this or an earlier write
    // failed. A closed pipe at standard output is not a failure.
    void Finish(Summary summary);

private:
    void Write(FILE* file, const std::string& line);

    const std::string m_role;
    const RunOptions& m_options;
    const std::string m_random;
    const uint32_t m_seed;
    int m_signals;
    int m_stop;
    std::mutex m_mutex;
    int m_error = 0; // of standard output
};

// When a run of so many seconds ends; Clock::time_point::max() for 0.
Clock::time_point EndOfRun(Clock::time_point start, double seconds);

} // namespace sim
