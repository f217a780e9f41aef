// The run of a role: options, seed, output, waiting, end by a limit or a signal, and summary.
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
    double seconds = 0;      // length of the run; 0 means no limit
    uint64_t count = 0;      // number of messages; 0 means no limit
    bool quiet = false;      // true prints only the summary and the seed
    bool json = false;       // true prints JSON to standard output, and lines for people to standard error
    std::string summaryFile; // the session writes the summary as JSON to this file, unless empty
    std::optional<uint32_t> seed;
};

// Create the session before the first thread. The constructor blocks SIGINT and SIGTERM, which then only end the run,
// and ignores SIGPIPE, so that a closed pipe only makes a write fail.
class Session {
public:
    // `random` names the random parts of the run; empty if nothing is random. `options` must outlive the session.
    // Throws std::system_error.
    Session(std::string role, const RunOptions& options, std::string random);
    ~Session();
    Session(const Session&) = delete;
    Session& operator=(const Session&) = delete;

    // Returns the seed of the options, or a random seed if the options have none.
    uint32_t Seed() const { return m_seed; }

    // Call Note, Print and Stop on any thread, and the other functions only on the main thread. A failed write to
    // standard output ends the run.

    // Prints a line for people, unless RunOptions::quiet is true.
    void Note(const std::string& line);
    // Prints a line of results to standard output, unless RunOptions::quiet is true.
    void Print(const std::string& line);
    // Makes WaitUntil return false.
    void Stop();

    // Prints the first lines: "role: what", and the seed if a part of the run is random.
    void Announce(const std::string& what);
    // Waits until the deadline and returns true. Clock::time_point::max() means no deadline. Returns false at once
    // after Stop, SIGINT or SIGTERM, even after the deadline.
    bool WaitUntil(Clock::time_point deadline);
    // Prints the summary and writes the summary file. Throws std::runtime_error if this or an earlier write failed. A
    // closed pipe at standard output is not a failure.
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
    int m_error = 0; // the error number of the first failed write to standard output
};

// Returns the time `seconds` after `start`. Returns Clock::time_point::max() if `seconds` is 0.
Clock::time_point DeadlineAfter(Clock::time_point start, double seconds);

} // namespace sim
