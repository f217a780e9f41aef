// Two calls measured side by side: they take turns round by round, so that what else the machine does meets both; the
// ratio is the median of the rounds' ratios.
#pragma once

#include <ctime>
#include <functional>

// Prints what the columns of compare() are.
void compareHeading(const char* baseline, const char* candidate);

// Measures both by this clock and prints one line: medians in nanoseconds, ratio, allocations of one call each. What
// wakes other threads is measured by the calling thread's processor time (CLOCK_THREAD_CPUTIME_ID): by the wall clock
// it is the scheduler's choice whether their work counts.
void compare(const char* what, const std::function<void()>& baseline, const std::function<void()>& candidate,
             clockid_t clock = CLOCK_MONOTONIC);
