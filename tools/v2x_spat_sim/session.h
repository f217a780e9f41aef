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

    // A line for people. Any thread; the same for the rest up to Stop. A failed write to standard output ends the run.
    void Note(const std::string& line);
    // A line of results on standard output.
    void Print(const std::string& line);
    void Stop();

    // Prints the first lines: "role: what", and the seed where it decides something.
    void Announce(const std::string& what);
    // Waits until the deadline (Clock::time_point::max(): for ever) and returns true. Returns false at once, also after
    // the deadline, when the run is to end. One thread only.
    bool WaitUntil(Clock::time_point deadline);
    // Prints "role: " and the summary, and writes its file. Throws std::runtime_error when this or an earlier write
    // failed, unless because the reader of standard output is gone.
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
