// Counts of what each path of a process took, refused or dropped, for its log.
#pragma once

#include <atomic>
#include <cstdint>

// One count. Keep it with static storage beside the code that counts: it makes itself known when it is made and is
// never taken away; nothing happens to it at exit, so that threads may count on.
class v2x_counter {
public:
    // `path` is what the count belongs to and `name` what is counted, both without blanks and of static storage.
    v2x_counter(const char* path, const char* name) : m_path(path), m_name(name), m_next(s_first) { s_first = this; }
    v2x_counter(const v2x_counter&) = delete;
    v2x_counter& operator=(const v2x_counter&) = delete;

    // Any thread; the count orders nothing.
    void Add(uint64_t times = 1) { m_count.fetch_add(times, std::memory_order_relaxed); }
    uint64_t Count() const { return m_count.load(std::memory_order_relaxed); }

    const char* Path() const { return m_path; }
    const char* Name() const { return m_name; }

    // Every counter of the process, in no order; null ends it. Not before main().
    static const v2x_counter* First() { return s_first; }
    const v2x_counter* Next() const { return m_next; }

private:
    static inline const v2x_counter* s_first = nullptr;

    const char* const m_path;
    const char* const m_name;
    const v2x_counter* const m_next;
    std::atomic<uint64_t> m_count{0};
};
