// Preloaded into a program: its wall clock is ahead by what control.h says, and steps when that changes. The monotonic
// clock stays alone, and waits for a time of the wall clock are counted: they do not see the step.
#include <ctime>
#include <pthread.h>
#include <sys/time.h>

#include "control.h"

namespace {

constexpr int64_t SECOND = 1000000000;

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

int64_t wallTime() {
    timespec now{};
    syscall(SYS_clock_gettime, CLOCK_REALTIME, &now);
    return nanoseconds(now) + offset();
}

void countWait(bool isForWall) {
    if (g_control != nullptr && isForWall) {
        g_control->waits++;
    }
}

} // namespace

extern "C" {

int clock_gettime(clockid_t clock, timespec* result) noexcept {
    const bool isWall = clock == CLOCK_REALTIME || clock == CLOCK_REALTIME_COARSE;
    const auto status = static_cast<int>(syscall(SYS_clock_gettime, clock, result));
    if (status == 0 && isWall) {
        *result = asTime(nanoseconds(*result) + offset());
    }
    return status;
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

int pthread_cond_timedwait(pthread_cond_t* condition, pthread_mutex_t* mutex, const timespec* time) {
    constexpr unsigned MONOTONIC = 2; // where the C library keeps the condition's clock
    const bool isWall = (condition->__data.__wrefs & MONOTONIC) == 0;
    countWait(isWall);
    return pthread_cond_clockwait(condition, mutex, isWall ? CLOCK_REALTIME : CLOCK_MONOTONIC, time);
}

int pthread_mutex_timedlock(pthread_mutex_t* mutex, const timespec* time) noexcept {
    countWait(true);
    return pthread_mutex_clocklock(mutex, CLOCK_REALTIME, time);
}
}
