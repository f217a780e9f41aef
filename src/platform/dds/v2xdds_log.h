// What the source files of this library log with.
#pragma once

#include <atomic>
#include <cstdint>

#include "v2x/v2xlog.h"

inline v2xlog_tag_t g_v2xddsLog{"SDDS"};

// Counts what a peer can cause endlessly. True for the first time and then for every count that is a power of two, so
// that the log grows by a line where the count doubles.
class v2xdds_counter {
public:
    bool Add() {
        m_count.fetch_add(1, std::memory_order_relaxed);
        const uint64_t count = Count();
        return (count & (count - 1)) == 0;
    }
    uint64_t Count() const { return m_count.load(std::memory_order_relaxed); }

private:
    std::atomic<uint64_t> m_count{0};
};
