// Distributes the daemon's events to the streams of the web server. A stream that is not read never delays the others.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>

namespace ctl {

// All functions may be called on any thread.
class EventHub {
public:
    static constexpr size_t STREAMS_MAX = 8;
    static constexpr size_t BUFFER_MAX = size_t{256} << 10; // bytes queued for each stream

    // The queue of one reader. Destroy it before the hub.
    class Stream {
    public:
        explicit Stream(EventHub& hub);
        ~Stream();
        Stream(const Stream&) = delete;
        Stream& operator=(const Stream&) = delete;

        // Returns the queued lines as server-sent events. Waits at most `wait` for a line. Returns an empty text after
        // the time-out, and an empty optional after Stop.
        std::optional<std::string> Take(std::chrono::milliseconds wait);

    private:
        friend class EventHub;
        void Push(const std::shared_ptr<const std::string>& line);

        EventHub& m_hub;
        std::deque<std::shared_ptr<const std::string>> m_lines;
        size_t m_size = 0;   // bytes of the lines
        uint64_t m_lost = 0; // lines discarded here and by the daemon since the last Take
    };

    // Returns a stream that starts with {"daemon": true} or {"daemon": false}. Returns null if STREAMS_MAX are open.
    std::shared_ptr<Stream> Open();

    // Appends one line to each stream. A stream above BUFFER_MAX discards its oldest lines, and reports their number as
    // {"lost": N}.
    void Publish(std::string line);

    // Adds events that the daemon has discarded to the next {"lost": N} of each stream.
    void AddLost(uint64_t count);

    // Publishes {"daemon": …} if the state has changed.
    void SetDaemon(bool isConnected);

    // Ends the present and the future calls of Take.
    void Stop();

private:
    void PushToAll(std::string line); // the caller has locked m_mutex

    std::mutex m_mutex; // guards all members, those of the streams too
    std::condition_variable m_changed;
    std::list<Stream*> m_streams;
    bool m_isConnected = false;
    bool m_isStopped = false;
};

} // namespace ctl
