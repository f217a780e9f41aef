#include "compare.h"

#include <algorithm>
#include <cstdio>
#include <vector>

#include "heap_calls.h"

namespace {

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

double readClock(clockid_t clock) { // nanoseconds
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

// Returns the mean time of one call in nanoseconds.
double measureCall(clockid_t clock, const std::function<void()>& call, int times) {
    const double start = readClock(clock);
    for (int i = 0; i < times; i++) {
        call();
    }
    return (readClock(clock) - start) / times;
}

size_t countAllocations(const std::function<void()>& call) {
    const size_t before = countHeapCalls();
    call();
    return countHeapCalls() - before;
}

} // namespace

void compareHeading(const char* baseline, const char* candidate) {
    printf("%-44s %10s %10s %8s %8s %8s\n", "ns, ratio, allocations a call", baseline, candidate, "ratio", baseline,
           candidate);
}

void compare(const char* what, const std::function<void()>& baseline, const std::function<void()>& candidate,
             clockid_t clock) {
    constexpr int ROUNDS = 301;
    const auto chooseCalls = [clock](const std::function<void()>& call) { // the calls of one round take about 0.3 ms
        return std::max(1, static_cast<int>(300'000 / measureCall(clock, call, 10)));
    };
    const int baselineCalls = chooseCalls(baseline);
    const int candidateCalls = chooseCalls(candidate);
    std::vector<double> baselineTimes;
    std::vector<double> candidateTimes;
    std::vector<double> ratios;
    for (int round = 0; round < ROUNDS; round++) {
        const bool isBaselineFirst = round % 2 == 0;
        if (isBaselineFirst) {
            baselineTimes.push_back(measureCall(clock, baseline, baselineCalls));
        }
        candidateTimes.push_back(measureCall(clock, candidate, candidateCalls));
        if (!isBaselineFirst) {
            baselineTimes.push_back(measureCall(clock, baseline, baselineCalls));
        }
        ratios.push_back(candidateTimes.back() / baselineTimes.back());
    }
    printf("%-44s %10.0f %10.0f %8.3f %8zu %8zu\n", what, median(baselineTimes), median(candidateTimes), median(ratios),
           countAllocations(baseline), countAllocations(candidate));
}
