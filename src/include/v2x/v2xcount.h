// Counters of what each data path of a process accepted, rejected or dropped, for its log.
#pragma once

#include <atomic>
#include <cstdint>

// One counter, with static storage in the file of the code that counts. The constructor registers it. It has no
// destructor, so that threads may count while the process exits.
class v2x_counter {
public:
    // `path` names the data path and `name` the counted event, both without blanks and with static storage.
    v2x_counter(const char* path, const char* name) : m_path(path), m_name(name), m_next(s_first) { s_first = this; }
    v2x_counter(const v2x_counter&) = delete;
    v2x_counter& operator=(const v2x_counter&) = delete;

    // Any thread, relaxed order.
    void Add(uint64_t times = 1) { m_count.fetch_add(times, std::memory_order_relaxed); }
    uint64_t Count() const { return m_count.load(std::memory_order_relaxed); }

    const char* Path() const { return m_path; }
    const char* Name() const { return m_name; }

    // The list of all counters in no order, ended by null. Complete once main() runs.
    static const v2x_counter* First() { return s_first; }
    const v2x_counter* Next() const { return m_next; }

private:
    static inline const v2x_counter* s_first = nullptr;

    const char* const m_path;
    const char* const m_name;
    const v2x_counter* const m_next;
    std::atomic<uint64_t> m_count{0};
};
