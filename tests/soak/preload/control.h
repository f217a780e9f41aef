// What a plan and a preload library share: a file in the work folder, mapped by both. The libraries find it by an
// environment variable and do nothing without it.
#pragma once

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <fcntl.h>
#include <sys/mman.h>
#include <sys/syscall.h>
#include <unistd.h>

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
    std::atomic<uint64_t> waits; // waits for a time of the wall clock
};

static_assert(std::atomic<uint64_t>::is_always_lock_free, "shared between processes");

// The file at `path`, in a library without one that of the variable; null when it cannot be had. System calls are made
// directly, since a library may stand in for their functions, and nothing is allocated.
template <typename Control>
Control* mapControl(const char* path = getenv(Control::VARIABLE)) {
    const int fd = path != nullptr ? static_cast<int>(syscall(SYS_openat, AT_FDCWD, path, O_RDWR | O_CLOEXEC, 0)) : -1;
    void* const place = mmap(nullptr, sizeof(Control), PROT_READ | PROT_WRITE, MAP_SHARED, fd, 0);
    syscall(SYS_close, fd);
    return place == MAP_FAILED ? nullptr : static_cast<Control*>(place);
}
