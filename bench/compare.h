// Measures two calls side by side. They alternate, so that other load on the machine affects both. The ratio is the
// median of the ratios of all rounds.
#pragma once

#include <ctime>
#include <functional>

// Prints the column headings for compare().
void compareHeading(const char* baseline, const char* candidate);

// Measures both calls with the clock and prints one line: median times in nanoseconds, their ratio, and the number of
// heap allocations of one call each. For calls that wake other threads use CLOCK_THREAD_CPUTIME_ID: with a wall clock
// the scheduler decides whether the other threads' work counts.
void compare(const char* what, const std::function<void()>& baseline, const std::function<void()>& candidate,
             clockid_t clock = CLOCK_MONOTONIC);
