// Two calls measured side by side: they take turns round by round, so that what else the machine does meets both; the
// ratio is the median of the rounds' ratios.
#pragma once

#include <functional>

// Prints what the columns of compare() are.
void compareHeading(const char* baseline, const char* candidate);

// Measures both and prints one line: medians in nanoseconds, ratio, allocations of one call each.
void compare(const char* what, const std::function<void()>& baseline, const std::function<void()>& candidate);
