// The wall clock set forward and back, and to 1970.
#include <cstdlib>
#include <ctime>

#include "faults.h"
#include "paths.h"
#include "plans.h"
#include "watch.h"
#include "work.h"

namespace {

constexpr int64_t SECOND = 1000000000;
constexpr int64_t HOUR = 3600 * SECOND;
constexpr int64_t DAY = 24 * HOUR;
constexpr int64_t TO_1970 = INT64_MIN; // so that it reads 1970-01-01 00:00:10

constexpr struct {
    const char* name;
    int64_t offset; // nanoseconds
} STEPS[] = {{"+1 s", SECOND}, {"-1 s", -SECOND}, {"+1 h", HOUR},      {"-1 h", -HOUR},
             {"+1 day", DAY},  {"-1 day", -DAY},  {"to 1970", TO_1970}};

int64_t wallNow() {
    timespec now = {};
    clock_gettime(CLOCK_REALTIME, &now);
    return now.tv_sec * SECOND + now.tv_nsec;
}

int64_t number(const Bytes& bytes, size_t at, size_t size) {
    uint64_t value = 0;
    for (size_t i = 0; i < size; i++) {
        value |= static_cast<uint64_t>(bytes.at(at + i)) << (8 * i);
    }
    return static_cast<int64_t>(value);
}

// How far a record's two times are from this one, the larger of both, in milliseconds. The daemon's zone is UTC.
int64_t offBy(const Bytes& record, int64_t wall) {
    const time_t seconds = wall / SECOND;
    tm utc = {};
    gmtime_r(&seconds, &utc);
    const int64_t ofYear = ((utc.tm_yday * 24 + utc.tm_hour) * 60 + utc.tm_min) * int64_t{60000} + utc.tm_sec * 1000 +
                           wall % SECOND / 1000000;
    const int64_t sent = number(record, 4, 8) / 1000;
    const int64_t marked = number(record, 34, 4) * 60000 + number(record, 38, 2);
    return std::max(std::abs(sent - wall / 1000000), std::abs(marked - ofYear));
}

// Status records of the daemon that the cloud's simulator has shown.
size_t statuses(const Unit& unit, int run) {
    return times(unit.simulatorOutput("cloud"), "\"run\":" + std::to_string(run));
}

// A line of what is right after the step.
void look(const std::string& name, Unit& unit, Work& work, int64_t offset, Table& table) {
    constexpr int LOOK_MS = 6000;
    constexpr int64_t BEATS_MS = 1000;
    constexpr int64_t REQUESTS_MS = 600;
    constexpr int64_t OFF_MS = 500;
    const Stopwatch watch;
    work.startCloud({"--rate", "5", "--status", "1", "--status-interval", "1"});
    const uint64_t beats = work.heartbeats();
    const uint64_t requests = work.requests();
    std::string wrong = work.documentArrives(15000) && work.replyArrives(15000) ? "" : " cloud";
    std::string seen = "cloud after " + std::to_string(watch.ms()) + " ms";
    while (watch.ms() < LOOK_MS) {
        wrong += work.reportArrives() ? "" : " record";
        work.sendFrame(); // the status is of the device that was heard last, or looked for
        std::this_thread::sleep_for(std::chrono::milliseconds(100));
    }
    const auto beaten = static_cast<int64_t>(work.heartbeats() - beats);
    const auto asked = static_cast<int64_t>(work.requests() - requests);
    const int64_t length = watch.ms();
    wrong += std::abs(beaten - length / BEATS_MS) <= 2 ? "" : " heartbeats";
    wrong += std::abs(asked - length / REQUESTS_MS) <= 3 ? "" : " requests";
    wrong += work.reportArrives() ? "" : " record";
    const int64_t off = offBy(work.lastRecord(), wallNow() + offset);
    wrong += off <= OFF_MS ? "" : " time";
    const auto available = [&] { return work.reportArrives(), work.sendFrame(), statuses(unit, 1) > 0; };
    wrong += eventually(available, 12000) && statuses(unit, 2) == 0 ? "" : " status";
    seen += ", in " + std::to_string(length) + " ms " + std::to_string(beaten) + " heartbeats and " +
            std::to_string(asked) + " requests, time off by " + std::to_string(off) + " ms, available " +
            std::to_string(statuses(unit, 1)) + " times, not " + std::to_string(statuses(unit, 2)) + " times";
    table.check(name, wrong.empty(), wrong.empty() ? seen : "wrong:" + wrong + "; " + seen,
                "as before, at the new time");
}

} // namespace

void planClock(const Options& /*options*/, Table& table) {
    Unit unit;
    const Shared<clock_control> clock(unit.folder);
    unit.startAndWaitReady({}, clock.environment("v2x_soak_clock"));
    Work work(unit);
    look("no step", unit, work, 0, table);
    for (const auto& step : STEPS) {
        clock->offset = step.offset == TO_1970 ? 10 * SECOND - wallNow() : step.offset;
        look(step.name, unit, work, clock->offset, table);
        clock->offset = 0;
        look("back", unit, work, 0, table);
    }
    table.equal("waits for a time of the wall clock", static_cast<int64_t>(clock->waits), 0);
    checkEnds(unit, "ends when asked to", table);
}
