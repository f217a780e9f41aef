// The thread that runs the callbacks of one participant, and looks after it in between. The library's own threads only
// wake it, so that a callback may take its time, send, or ask for matches without holding up the protocol.
#pragma once

#include <chrono>
#include <condition_variable>
#include <functional>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

class v2xdds_reader;

class v2xdds_dispatch {
public:
    v2xdds_dispatch() = default;
    ~v2xdds_dispatch() { Stop(); }
    v2xdds_dispatch(const v2xdds_dispatch&) = delete;
    v2xdds_dispatch& operator=(const v2xdds_dispatch&) = delete;

    using Readers = std::vector<std::unique_ptr<v2xdds_reader>>;
    using Clock = std::chrono::steady_clock;

    // Serves these readers, which outlive the thread, and calls `tend` between two of their samples and whenever woken;
    // it may put others in their place, and says when it is to be called again at the latest. Throws std::system_error
    // where no thread can be had.
    void Start(const Readers& readers, std::function<Clock::time_point()> tend);
    // There may be something to take or to tend. Any thread.
    void Wake();
    // Waits for the callback that runs; none runs afterwards.
    void Stop();
    // Whether the caller is a callback of this participant.
    bool IsCaller() const;

private:
    void Run(const Readers& readers, const std::function<Clock::time_point()>& tend);

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_isPending = false;
    bool m_isStopping = false;
    std::thread m_thread;
};
