// Counters of the data that a process accepted, rejected or dropped, for the process's log.
#pragma once

#include <atomic>
#include <cstdint>

// One counter, in static storage. The constructor adds the counter to the list of all counters. The class has no
// destructor, so that threads may count while the process exits.
class v2x_counter {
public:
    // `path` is the name of the data path and `name` is the name of the counted event. Both are without blanks and in
    // static storage.
    v2x_counter(const char* path, const char* name) : m_path(path), m_name(name), m_next(s_first) { s_first = this; }
    v2x_counter(const v2x_counter&) = delete;
    v2x_counter& operator=(const v2x_counter&) = delete;

    // Both functions may be called on any thread. They use relaxed order.
    void Add(uint64_t times = 1) { m_count.fetch_add(times, std::memory_order_relaxed); }
    uint64_t Count() const { return m_count.load(std::memory_order_relaxed); }

    const char* Path() const { return m_path; }
    const char* Name() const { return m_name; }

    // First and Next iterate over all counters in no particular order; null ends the list. The list is complete when
    // main() starts.
    static const v2x_counter* First() { return s_first; }
    const v2x_counter* Next() const { return m_next; }

private:
    static inline const v2x_counter* s_first = nullptr;

    const char* const m_path;
    const char* const m_name;
    const v2x_counter* const m_next;
    std::atomic<uint64_t> m_count{0};
};
