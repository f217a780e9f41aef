// Measures two calls in alternation, so that other load on the machine affects both.
#pragma once

#include <ctime>
#include <functional>

// Prints the column headings for compare().
void compareHeading(const char* baseline, const char* candidate);

// Prints one line: the median time of each call in nanoseconds, the median of the rounds' ratios, and each call's heap
// allocations. Use CLOCK_THREAD_CPUTIME_ID for calls that wake other threads: a wall clock may also measure the work of
// these threads.
void compare(const char* what, const std::function<void()>& baseline, const std::function<void()>& candidate,
             clockid_t clock = CLOCK_MONOTONIC);
