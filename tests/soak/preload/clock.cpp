// Preloaded into a program: its wall clock is ahead by what control.h says, and steps when that changes. The monotonic
// clock stays alone.
#include <algorithm>
#include <cerrno>
#include <ctime>
#include <pthread.h>
#include <sys/time.h>

#include "control.h"
#include "map_control.h"

namespace {

constexpr int64_t SECOND = 1000000000;
constexpr int64_t STEP_SEEN = 50000000; // after so long a waiting thread sees a step, as the kernel would wake it

clock_control* const g_control = mapControl<clock_control>();

int64_t nanoseconds(const timespec& time) {
    return time.tv_sec * SECOND + time.tv_nsec;
}

timespec asTime(int64_t value) {
    return {value / SECOND, value % SECOND};
}

int64_t offset() {
    return g_control != nullptr ? g_control->offset.load() : 0;
}

int64_t kernelTime(clockid_t clock) {
    timespec now{};
    syscall(SYS_clock_gettime, clock, &now);
    return nanoseconds(now);
}

int64_t wallTime(clockid_t clock = CLOCK_REALTIME) {
    if (g_control != nullptr) {
        g_control->asked.fetch_add(1);
    }
    return kernelTime(clock) + offset();
}

bool isWall(clockid_t clock) {
    return clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
}

// The wall clock's `time` for the kernel.
int64_t kernelDeadline(const timespec* time) {
    if (g_control != nullptr) {
        g_control->waits.fetch_add(1);
    }
    return std::max<int64_t>(nanoseconds(*time) - offset(), 0);
}

} // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* result) noexcept {
    if (!isWall(clock)) {
        return static_cast<int>(syscall(SYS_clock_gettime, clock, result));
    }
    *result = asTime(wallTime(clock));
    return 0;
}

int gettimeofday(timeval* result, void* /*zone*/) noexcept {
    const int64_t now = wallTime();
    *result = {now / SECOND, now % SECOND / 1000};
    return 0;
}

time_t time(time_t* result) noexcept {
    const time_t now = wallTime() / SECOND;
    if (result != nullptr) {
        *result = now;
    }
    return now;
}

int timespec_get(timespec* result, int base) noexcept {
    *result = asTime(wallTime());
    return base;
}

// Wakes up early, as it may, to look for a step.
int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* time) {
    constexpr unsigned MONOTONIC = 2; // where the C library keeps the condition's clock
    if ((condition->__data.__wrefs & MONOTONIC) != 0) {
        return pthread_cond_clockwait(condition, mutex, CLOCK_MONOTONIC, time);
    }
    const int64_t soon = kernelTime(CLOCK_REALTIME) + STEP_SEEN;
    const int64_t deadline = kernelDeadline(time);
    const timespec until = asTime(std::min(deadline, soon));
    const int result = pthread_cond_clockwait(condition, mutex, CLOCK_REALTIME, &until);
    return result == ETIMEDOUT && deadline > soon ? 0 : result;
}

int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* time) noexcept {
    const timespec until = asTime(kernelDeadline(time));
    return pthread_mutex_clocklock(mutex, CLOCK_REALTIME, &until);
}
}
