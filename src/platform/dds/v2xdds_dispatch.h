// The thread that runs the callbacks of one participant. Fast DDS holds its locks while it notifies, so its threads
// only wake this one: a callback may be slow, send, or ask for matches without delaying the protocol.
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

    // Serves these readers, which must outlive the thread. Throws std::system_error if no thread can be created.
    void Start(const Readers& readers);
    // A reader may have a sample. Any thread.
    void Wake();
    // Waits for a callback that is running; none runs afterwards.
    void Stop();
    // Whether the caller is a callback of this participant.
    bool IsCaller() const;

private:
    void Run(const Readers& readers);

    std::mutex m_mutex;
    std::condition_variable m_wake;
    bool m_isPending = false;
    bool m_isStopping = false;
    std::thread m_thread;
};
