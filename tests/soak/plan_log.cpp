// The log's disk full, its folder gone or not writable, and no descriptors left while it rotates.
#include <algorithm>
#include <filesystem>
#include <functional>

#include "log_faults.h"
#include "paths.h"
#include "plans.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr double REPORTS = 50;
constexpr int BACK_MS = 5000;
constexpr int SEEN_MS = 30000;     // for the daemon to meet the fault
constexpr uint32_t SHARE = 4;      // a fault takes seconds: one for so many of --times
constexpr const char* DEBUG = "5"; // lines with every reading
constexpr const char* INFO = "4";
constexpr const char* OUTAGE = "v2xlog: cannot write";
constexpr const char* DISK_FULL = "No space left on device";
constexpr const char* NO_DESCRIPTORS = "Too many open files";

size_t times(const std::string& all, const std::string& text) {
    size_t count = 0;
    for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + text.size())) {
        count++;
    }
    return count;
}

// A fault that can be done over. Each step tells whether it took place; begin() when the daemon has met it.
struct Fault {
    const char* what;
    bool (*begin)(Unit& unit);
    bool (*end)(Unit& unit);
};

// Whether the daemon told of one more outage with this reason since there were `before`.
bool toldOf(const Unit& unit, const std::string& reason, size_t before) {
    return eventually([&] { return times(unit.err(), reason) > before; }, SEEN_MS);
}

bool hasLineSince(const Unit& unit, const fs::file_time_type& since) {
    std::error_code error;
    const auto written = fs::last_write_time(unit.logPath, error);
    return !error && written > since && fs::file_size(unit.logPath, error) > 0;
}

bool isThere(const std::string& path) {
    std::error_code error;
    return fs::exists(path, error);
}

struct Seen {
    uint32_t rounds = 0;
    uint32_t met = 0;
    uint32_t back = 0;
    int64_t worstMs = 0;
    uint64_t sent = 0;
    uint64_t records = 0;
    bool lives = true;
};

void once(Unit& unit, const Fault& fault, Seen& seen) {
    seen.rounds++;
    const bool begun = fault.begin(unit);
    std::this_thread::sleep_for(500ms);
    const auto end = std::chrono::steady_clock::now();
    const auto since = fs::file_time_type::clock::now();
    const bool ended = fault.end(unit);
    seen.met += begun && ended ? 1 : 0;
    seen.back += eventually([&] { return hasLineSince(unit, since); }, BACK_MS) ? 1 : 0;
    const auto took = std::chrono::steady_clock::now() - end;
    seen.worstMs = std::max<int64_t>(seen.worstMs, std::chrono::duration_cast<std::chrono::milliseconds>(took).count());
}

// A stream of reports while `rounds` runs: each is to come out as a record.
void underReports(Unit& unit, const char* level, Seen& seen, const std::function<void()>& rounds) {
    const StackDesk desk(unit.stack);
    unit.startAndWaitReady({"-d", level});
    startLearner(unit, REPORTS);
    eventually([&] { return desk.of(LEARNER) > 0; });
    rounds();
    const uint64_t sent = counted(unit.endSimulator("learner"), "sent");
    std::this_thread::sleep_for(500ms);
    seen.sent += sent;
    seen.records += desk.of(LEARNER);
    seen.lives = seen.lives && unit.daemon->wait(0) == -1;
}

void show(const std::string& what, const Seen& seen, Table& table) {
    table.equal(what + ": met by the daemon", seen.met, seen.rounds, "times");
    table.check(what + ": the daemon", seen.lives, seen.lives ? "lives" : "ended", "lives");
    table.check(what + ": records of reports", seen.sent > 0 && seen.records == seen.sent,
                std::to_string(seen.records) + " of " + std::to_string(seen.sent), "all");
    table.check(what + ": logging back", seen.back == seen.rounds,
                std::to_string(seen.back) + " times, at most " + std::to_string(seen.worstMs) + " ms",
                std::to_string(seen.rounds) + " times within " + std::to_string(BACK_MS) + " ms");
}

const Fault FULL = {
    "disk full",
    [](Unit& unit) {
        const size_t before = times(unit.err(), DISK_FULL);
        fill(folderOf(unit) + "/filler");
        return toldOf(unit, DISK_FULL, before);
    },
    [](Unit& unit) {
        std::error_code error;
        return fs::remove(folderOf(unit) + "/filler", error);
    },
};

// The daemon makes it anew: that it is gone is the fault's end.
const Fault REMOVED = {
    "folder removed",
    [](Unit& unit) { return isThere(unit.logPath); },
    [](Unit& unit) {
        // Again when the daemon has opened its file meanwhile.
        std::error_code error;
        return eventually([&] { return fs::remove_all(folderOf(unit), error) > 1 && !error; }, 1000);
    },
};

const Fault NOT_WRITABLE = {
    "folder not writable",
    [](Unit& unit) {
        const size_t before = times(unit.err(), OUTAGE);
        return setWritable(folderOf(unit), false) && toldOf(unit, OUTAGE, before);
    },
    [](Unit& unit) { return setWritable(folderOf(unit), true); },
};

const Fault DESCRIPTORS = {
    "no descriptors while it rotates",
    [](Unit& unit) {
        const bool limited = limitDescriptors(unit, numbersInUse(unit));
        traceAll(unit);
        return limited && toldOf(unit, NO_DESCRIPTORS, 0);
    },
    [](Unit& unit) { return limitDescriptors(unit, RLIM_INFINITY) && isThere(folderOf(unit) + "/spat_conv.1.log"); },
};

void overAndOver(Unit& unit, const Fault& fault, uint32_t rounds, Table& table) {
    Seen seen;
    underReports(unit, DEBUG, seen, [&] {
        for (uint32_t round = 0; round < rounds; round++) {
            once(unit, fault, seen);
        }
    });
    show(fault.what, seen, table);
}

} // namespace

void planLog(const Options& options, Table& table) {
    const uint32_t rounds = std::max(1U, options.times / SHARE);
    {
        Unit unit;
        const Mounted disk(folderOf(unit));
        if (disk.why().empty()) {
            overAndOver(unit, FULL, rounds, table);
        } else {
            table.notRun(FULL.what, disk.why());
        }
        unit.daemon.reset();
    }
    {
        Unit unit;
        overAndOver(unit, REMOVED, rounds, table);
    }
    if (const std::string why = whyAlwaysWritable(); why.empty()) {
        Unit unit;
        overAndOver(unit, NOT_WRITABLE, rounds, table);
        table.note("folder not writable by", geteuid() == 0 ? "the immutable flag" : "its mode");
        setWritable(folderOf(unit), true);
    } else {
        table.notRun(NOT_WRITABLE.what, why);
    }
    Seen seen;
    for (uint32_t round = 0; round < rounds; round++) {
        Unit unit;
        fillLog(unit);
        underReports(unit, INFO, seen, [&] { once(unit, DESCRIPTORS, seen); });
    }
    show(DESCRIPTORS.what, seen, table);
}
