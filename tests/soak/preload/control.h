// What a plan and a preload library share: a file in the work folder, mapped by both. The libraries find it by an
// environment variable and do nothing without it.
#pragma once

#include <atomic>
#include <cstdint>

// The calls that can fail.
enum fault_call : uint32_t {
    FAULT_NONE,
    FAULT_ALLOCATION,
    FAULT_ALLOCATION_OWN, // on a thread that the program has named
    FAULT_RECVMSG,
    FAULT_RECVFROM,
    FAULT_SENDTO,
    FAULT_SENDMSG,
    FAULT_POLL,
    FAULT_PPOLL,
    FAULT_WRITE,
    FAULT_OPEN,
    FAULT_CALLS,
};

struct fault_control {
    static constexpr const char* VARIABLE = "V2X_FAULTS";
    std::atomic<uint32_t> call;                // the one that fails
    std::atomic<uint64_t> first;               // of its calls, counted from 1
    std::atomic<uint64_t> last;                // the same as first: once
    std::atomic<int32_t> error;                // errno of the failure
    std::atomic<uint64_t> fired;               // failures since it was armed
    std::atomic<uint64_t> counts[FAULT_CALLS]; // calls since the start
    std::atomic<uint64_t> beforeMain;          // allocations of the libraries' own start
};

struct clock_control {
    static constexpr const char* VARIABLE = "V2X_CLOCK";
    std::atomic<int64_t> offset; // nanoseconds that the wall clock is ahead
    std::atomic<uint64_t> asked; // readings of the wall clock
    std::atomic<uint64_t> waits; // waits for a time of the wall clock
};

static_assert(std::atomic<uint64_t>::is_always_lock_free, "shared between processes");
