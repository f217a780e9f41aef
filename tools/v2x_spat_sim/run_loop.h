// Waiting until a point in time, or until the run is to end: by SIGINT, SIGTERM or another thread.
#pragma once

#include <chrono>

namespace sim {

using Clock = std::chrono::steady_clock;

// Make it before any thread is started: from then on SIGINT and SIGTERM wait for this loop alone, and a closed pipe is
// an error of the write and no signal.
class RunLoop {
public:
    // Throws std::system_error.
    RunLoop();
    ~RunLoop();
    RunLoop(const RunLoop&) = delete;
    RunLoop& operator=(const RunLoop&) = delete;

    // Waits until the deadline (Clock::time_point::max(): for ever) and returns true; false at once, and from then on,
    // when the run is to end, also when the deadline has passed. One thread only.
    bool WaitUntil(Clock::time_point deadline);

    // Ends the run. Any thread.
    void Stop();

private:
    int m_signals;
    int m_stop;
};

// `seconds` after the start; never when they are 0.
Clock::time_point EndOfRun(Clock::time_point start, double seconds);

} // namespace sim
