// The daemon killed and started again under traffic: how soon the first record comes.
#include <algorithm>

#include "paths.h"
#include "plans.h"
#include "watch.h"

namespace {

constexpr double REPORTS = 50; // a second; the wait for the next one counts
constexpr int LIMIT_MS = 1000;
constexpr int GIVE_UP_MS = 20000;
constexpr int DDS_MS = 10000;

} // namespace

void planRestarts(const Options& options, Table& table) {
    Site unit;
    const StackDesk desk(unit.stack);
    startSources(unit, {REPORTS, RATES[CONTROLLER], RATES[CLOUD]});
    unit.startAndWaitReady();
    checkTraffic(unit, desk, "traffic before the first kill", table);
    std::vector<int64_t> times;
    uint32_t killed = 0;
    uint32_t ready = 0;
    for (uint32_t round = 0; round < options.times; round++) {
        unit.daemon->signal(SIGKILL);
        killed += unit.daemon->wait(10000) == 128 + SIGKILL ? 1 : 0;
        std::this_thread::sleep_for(std::chrono::milliseconds(100)); // what it had sent is read
        const Stopwatch start;
        unit.start();
        eventually([&, before = desk.of(LEARNER)] { return desk.of(LEARNER) > before; }, GIVE_UP_MS);
        times.push_back(start.ms());
        ready += unit.notify.receive() == "READY=1" ? 1 : 0;
        // The next kill finds it at another point of its work.
        std::this_thread::sleep_for(std::chrono::milliseconds(round * 137 % 1500));
    }
    const Stopwatch lastStart;
    const uint64_t down = desk.of(CLOUD);
    const uint64_t up = documentsUp(unit);
    const bool isBack = eventually([&] { return desk.of(CLOUD) > down && documentsUp(unit) > up; }, DDS_MS);
    std::sort(times.begin(), times.end());
    table.equal("kills that ended it", killed, options.times);
    table.equal("starts that came to READY=1", ready, options.times);
    table.note("first record after the start, median", std::to_string(times[times.size() / 2]) + " ms");
    table.atMost("first record after the start, worst of " + std::to_string(times.size()), times.back(), LIMIT_MS,
                 "ms");
    table.check("DDS after the last start", isBack, "in " + std::to_string(lastStart.ms()) + " ms",
                "both ways within 10 s");
    endSources(unit);
    checkPaths(unit, desk, "all paths after", table);
}
