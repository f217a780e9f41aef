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

double now(clockid_t clock) {
    timespec time{};
    clock_gettime(clock, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

double nanoseconds(clockid_t clock, const std::function<void()>& call, int times) {
    const double start = now(clock);
    for (int i = 0; i < times; i++) {
        call();
    }
    return (now(clock) - start) / times;
}

size_t allocations(const std::function<void()>& call) {
    const size_t before = heapCalls();
    call();
    return heapCalls() - before;
}

} // namespace

void compareHeading(const char* baseline, const char* candidate) {
    printf("%-44s %10s %10s %8s %8s %8s\n", "ns, ratio, allocations a call", baseline, candidate, "ratio", baseline,
           candidate);
}

void compare(const char* what, const std::function<void()>& baseline, const std::function<void()>& candidate,
             clockid_t clock) {
    constexpr int ROUNDS = 301;
    const auto timesOf = [clock](const std::function<void()>& call) { // 0.3 ms a round
        return std::max(1, static_cast<int>(300'000 / nanoseconds(clock, call, 10)));
    };
    const int baselineCalls = timesOf(baseline);
    const int candidateCalls = timesOf(candidate);
    std::vector<double> baselineTimes;
    std::vector<double> candidateTimes;
    std::vector<double> ratios;
    for (int round = 0; round < ROUNDS; round++) {
        const bool baselineFirst = round % 2 == 0;
        if (baselineFirst) {
            baselineTimes.push_back(nanoseconds(clock, baseline, baselineCalls));
        }
        candidateTimes.push_back(nanoseconds(clock, candidate, candidateCalls));
        if (!baselineFirst) {
            baselineTimes.push_back(nanoseconds(clock, baseline, baselineCalls));
        }
        ratios.push_back(candidateTimes.back() / baselineTimes.back());
    }
    printf("%-44s %10.0f %10.0f %8.3f %8zu %8zu\n", what, median(baselineTimes), median(candidateTimes), median(ratios),
           allocations(baseline), allocations(candidate));
}
