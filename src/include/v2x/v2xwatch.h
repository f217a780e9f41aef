// Finds the threads of a process that make no progress. A thread reports its progress with one store: it takes no lock,
// allocates nothing and reads no clock.
#pragma once

#include <atomic>
#include <cstdint>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

// A watched thread. The thread that creates the object reports its progress and destroys it.
class v2x_watchedThread {
public:
    // A thread that makes no progress for this time is stuck. Microseconds.
    static constexpr uint64_t LIMIT = 10'000'000;

    // Adds a thread that waits for input. `name` is its name in the log.
    explicit v2x_watchedThread(std::string name) : m_name(std::move(name)) {
        const std::lock_guard lock(s_mutex);
        m_next = s_first;
        s_first = this;
    }
    ~v2x_watchedThread() {
        const std::lock_guard lock(s_mutex);
        v2x_watchedThread** link = &s_first;
        while (*link != this) {
            link = &(*link)->m_next;
        }
        *link = m_next;
    }
    v2x_watchedThread(const v2x_watchedThread&) = delete;
    v2x_watchedThread& operator=(const v2x_watchedThread&) = delete;

    // The thread starts a piece of work. It calls one of these three functions again within LIMIT.
    void Work() { m_due.store(--m_piece, std::memory_order_relaxed); }

    // The thread waits for input, without limit.
    void Wait() { m_due.store(INT64_MAX, std::memory_order_relaxed); }

    // The thread sleeps until `time` and then works. It calls one of these three functions again at most LIMIT after
    // `time`, which is monotonic, in microseconds, and later than in the previous call.
    void WaitUntil(uint64_t time) { m_due.store(static_cast<int64_t>(time), std::memory_order_relaxed); }

    // Returns the names of the threads that are stuck at the monotonic time `now`, in microseconds. LIMIT starts with
    // the first call that finds the thread at work, so that a pause of the whole process usually does not count. Call
    // it at least every second, on one thread.
    static std::vector<std::string> FindStuck(uint64_t now) {
        const std::lock_guard lock(s_mutex);
        std::vector<std::string> names;
        for (v2x_watchedThread* thread = s_first; thread != nullptr; thread = thread->m_next) {
            if (thread->IsStuck(now)) {
                names.push_back(thread->m_name);
            }
        }
        return names;
    }

private:
    bool IsStuck(uint64_t now) {
        const int64_t due = m_due.load(std::memory_order_relaxed);
        if (due > static_cast<int64_t>(now)) {
            return false;
        }
        if (due != m_seenDue) {
            m_seenDue = due;
            m_seenTime = now;
        }
        return now - m_seenTime >= LIMIT;
    }

    const std::string m_name;
    // The time from which the thread works. A piece of work without a known time has a negative number, so that it
    // counts at once. No value but INT64_MAX is stored twice.
    std::atomic<int64_t> m_due{INT64_MAX};
    int64_t m_piece = 0;     // last negative number; for the watched thread
    int64_t m_seenDue = 0;   // m_due at the last call of IsStuck that found the thread at work
    uint64_t m_seenTime = 0; // time of the first such call with this m_seenDue
    v2x_watchedThread* m_next = nullptr;

    // The list has no destructor, because threads run while the process exits.
    static inline constinit std::mutex s_mutex;
    static inline constinit v2x_watchedThread* s_first = nullptr;
};
