// The dispatcher: a thread that calls the callbacks of one participant. Fast DDS holds its locks while it notifies a
// listener, so our listeners only wake this thread. A callback may be slow, call dds_send or call get_match_cnt without
// delaying the RTPS protocol.
#pragma once

#include <condition_variable>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "v2xdds_reader.h"

class v2xdds_dispatch {
public:
    v2xdds_dispatch() = default;
    ~v2xdds_dispatch() { Stop(); }
    v2xdds_dispatch(const v2xdds_dispatch&) = delete;
    v2xdds_dispatch& operator=(const v2xdds_dispatch&) = delete;

    using Readers = std::vector<std::unique_ptr<v2xdds_reader>>;

    // Starts the thread that delivers the samples of `readers`. The readers must outlive the thread. Throws
    // std::system_error if the thread cannot be created.
    void Start(const Readers& readers);
    // Wakes the thread because a reader may have received a sample. May be called on any thread.
    void Wake();
    // Waits for a running callback and ends the thread. No callback runs after Stop returns.
    void Stop();
    // Returns true on the thread of this dispatcher, so true means that a callback is the caller.
    bool IsOwnThread() const;

private:
    void Run(const Readers& readers);

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_isPending = false;
    bool m_isStopping = false;
    std::thread m_thread;
};
