#include "compare.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <vector>

#include "heap_calls.h"

namespace {

using Clock = std::chrono::steady_clock;

double median(std::vector<double> values) {
    std::ranges::sort(values);
    return values[values.size() / 2];
}

double nanoseconds(const std::function<void()>& call, int times) {
    const auto start = Clock::now();
    for (int i = 0; i < times; i++) {
        call();
    }
    return std::chrono::duration<double, std::nano>(Clock::now() - start).count() / times;
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

void compare(const char* what, const std::function<void()>& baseline, const std::function<void()>& candidate) {
    constexpr int ROUNDS = 301;
    const auto timesOf = [](const std::function<void()>& call) { // 0.3 ms a round
        return std::max(1, static_cast<int>(300'000 / nanoseconds(call, 10)));
    };
    const int baselineCalls = timesOf(baseline);
    const int candidateCalls = timesOf(candidate);
    std::vector<double> baselineTimes;
    std::vector<double> candidateTimes;
    std::vector<double> ratios;
    for (int round = 0; round < ROUNDS; round++) {
        const bool baselineFirst = round % 2 == 0;
        if (baselineFirst) {
            baselineTimes.push_back(nanoseconds(baseline, baselineCalls));
        }
        candidateTimes.push_back(nanoseconds(candidate, candidateCalls));
        if (!baselineFirst) {
            baselineTimes.push_back(nanoseconds(baseline, baselineCalls));
        }
        ratios.push_back(candidateTimes.back() / baselineTimes.back());
    }
    printf("%-44s %10.0f %10.0f %8.3f %8zu %8zu\n", what, median(baselineTimes), median(candidateTimes), median(ratios),
           allocations(baseline), allocations(candidate));
}
