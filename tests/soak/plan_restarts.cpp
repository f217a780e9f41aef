// The daemon killed and started again under traffic: how soon the first record comes.
#include <algorithm>

#include "paths.h"
#include "plans.h"

namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr double REPORTS = 50; // a second; the wait for the next one counts
constexpr int LIMIT_MS = 1000;
constexpr int GIVE_UP_MS = 20000;
constexpr int DDS_MS = 10000;

// Milliseconds from the start to the first record; GIVE_UP_MS when none came.
int64_t startToRecord(Unit& unit, const StackDesk& desk) {
    const uint64_t before = desk.of(LEARNER);
    const auto start = Clock::now();
    unit.start();
    eventually([&] { return desk.of(LEARNER) > before; }, GIVE_UP_MS);
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

} // namespace

void planRestarts(const Options& options, Table& table) {
    Unit unit;
    unit.corrections = "SpatDown = true; ReplyItems = true;";
    const StackDesk desk(unit.stack);
    startLearner(unit, REPORTS);
    startController(unit);
    startCloud(unit);
    unit.startAndWaitReady();
    eventually([&] { return desk.of(CLOUD) > 0 && desk.of(CONTROLLER) > 0 && documentsUp(unit) > 0; }, DDS_MS);
    table.check("traffic before the first kill", desk.of(CLOUD) > 0 && desk.of(CONTROLLER) > 0 && documentsUp(unit) > 0,
                "records " + std::to_string(desk.of(LEARNER)) + "/" + std::to_string(desk.of(CONTROLLER)) + "/" +
                    std::to_string(desk.of(CLOUD)) + ", up " + std::to_string(documentsUp(unit)),
                "on each path");
    std::vector<int64_t> times;
    uint32_t killed = 0;
    uint32_t ready = 0;
    for (uint32_t round = 0; round < options.times; round++) {
        unit.daemon->signal(SIGKILL);
        killed += unit.daemon->wait(10000) == 128 + SIGKILL ? 1 : 0;
        std::this_thread::sleep_for(100ms); // what it had sent is read
        times.push_back(startToRecord(unit, desk));
        ready += unit.notify.receive() == "READY=1" ? 1 : 0;
        // The next kill finds it at another point of its work.
        std::this_thread::sleep_for(std::chrono::milliseconds(round * 137 % 1500));
    }
    const auto lastStart = Clock::now();
    const uint64_t down = desk.of(CLOUD);
    const uint64_t up = documentsUp(unit);
    eventually([&] { return desk.of(CLOUD) > down && documentsUp(unit) > up; }, DDS_MS);
    const int64_t ddsMs = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - lastStart).count();
    std::sort(times.begin(), times.end());
    table.equal("kills that ended it", killed, options.times);
    table.equal("starts that came to READY=1", ready, options.times);
    table.note("first record after the start, median", std::to_string(times[times.size() / 2]) + " ms");
    table.atMost("first record after the start, worst of " + std::to_string(times.size()), times.back(), LIMIT_MS,
                 "ms");
    table.check("DDS after the last start", desk.of(CLOUD) > down && documentsUp(unit) > up,
                std::to_string(desk.of(CLOUD) - down) + " down, " + std::to_string(documentsUp(unit) - up) + " up in " +
                    std::to_string(ddsMs) + " ms",
                "both ways within 10 s");
    for (const char* role : {"learner", "controller", "cloud"}) {
        unit.endSimulator(role);
    }
    const std::string working = pathsAtWork(unit, desk, ALL_PATHS);
    table.check("all paths after", working == ALL_PATHS, working, ALL_PATHS);
}
