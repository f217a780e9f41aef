// Measures the time from the daemon's start to the first record. Then measures the idle daemon's processor time, memory
// and thread wake-ups. The exit status is 1 if a figure exceeds its limit.
// usage: bench_daemon [SECONDS]    measures the idle daemon for SECONDS, default 30
#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <sstream>
#include <thread>
#include <unistd.h>

#include "unit.h"

namespace {

using Clock = std::chrono::steady_clock;

constexpr int STARTS = 15;
constexpr double FIRST_RECORD_LIMIT_MS = 300;
constexpr double IDLE_LIMIT_PERCENT = 0.5;
constexpr double RSS_LIMIT_MIB = 40;

const Bytes REPORT = hex("FEFE10 000A 00 01 00 03 01 0F 00000000");

// Starts a daemon and sends learner reports until a record arrives. Returns the time from the daemon's start to the
// record in milliseconds, or -1 if no record arrives within 10 s.
double measureFirstRecord() {
    Unit unit;
    const auto start = Clock::now();
    unit.start();
    std::optional<Bytes> record;
    while (!record.has_value() && Clock::now() - start < std::chrono::seconds(10)) {
        unit.learner.sendTo(unit.reportPort, REPORT);
        record = unit.receiveRecord(1);
    }
    const double elapsed = std::chrono::duration<double, std::milli>(Clock::now() - start).count();
    return record.has_value() ? elapsed : -1;
}

struct Usage {
    uint64_t ticks = 0;    // processor time in clock ticks
    uint64_t switches = 0; // voluntary context switches of all threads
    uint64_t rssKiB = 0;
};

Usage readUsage(pid_t pid) {
    const std::string process = "/proc/" + std::to_string(pid);
    Usage usage;
    std::istringstream stat(readFile(process + "/stat"));
    std::string field;
    for (int i = 1; i <= 15 && stat >> field; i++) {
        usage.ticks += i >= 14 ? strtoull(field.c_str(), nullptr, 10) : 0; // fields 14 and 15 are utime and stime
    }
    const auto findNumber = [](const std::string& text, const std::string& name) {
        const size_t at = text.find(name + ":");
        return at == std::string::npos ? 0 : strtoull(text.c_str() + at + name.size() + 1, nullptr, 10);
    };
    usage.rssKiB = findNumber(readFile(process + "/status"), "VmRSS");
    for (const auto& thread : std::filesystem::directory_iterator(process + "/task")) {
        usage.switches += findNumber(readFile(thread.path().string() + "/status"), "\nvoluntary_ctxt_switches");
    }
    return usage;
}

// Prints a figure and its limit. Returns false if the figure exceeds the limit.
bool printFigure(const char* what, double value, const char* unit, double limit) {
    printf("%-44s %10.2f %-4s limit %g\n", what, value, unit, limit);
    return value <= limit;
}

} // namespace

int main(int argc, char** argv) {
    const int seconds = std::max(1, argc > 1 ? atoi(argv[1]) : 30);
    std::vector<double> starts;
    for (int i = 0; i < STARTS; i++) {
        starts.push_back(measureFirstRecord());
    }
    std::ranges::sort(starts);
    bool isOk = starts.front() > 0;
    isOk &= printFigure("start to first record, median", starts[STARTS / 2], "ms", FIRST_RECORD_LIMIT_MS);
    isOk &= printFigure("start to first record, longest", starts.back(), "ms", FIRST_RECORD_LIMIT_MS);

    Unit unit;
    unit.start();
    if (unit.notify.receive() != "READY=1") {
        fprintf(stderr, "bench_daemon: the daemon did not start: %s\n", unit.err().c_str());
        return 1;
    }
    std::this_thread::sleep_for(std::chrono::seconds(2));
    const Usage before = readUsage(unit.daemon->pid());
    std::this_thread::sleep_for(std::chrono::seconds(seconds));
    const Usage after = readUsage(unit.daemon->pid());
    const double cpu =
        100.0 * static_cast<double>(after.ticks - before.ticks) / static_cast<double>(sysconf(_SC_CLK_TCK)) / seconds;
    isOk &= printFigure("idle, share of one processor", cpu, "%", IDLE_LIMIT_PERCENT);
    isOk &= printFigure("idle, resident memory", static_cast<double>(after.rssKiB) / 1024, "MiB", RSS_LIMIT_MIB);
    printf("%-44s %10.2f /s\n", "idle, thread wake-ups",
           static_cast<double>(after.switches - before.switches) / seconds);
    return isOk ? 0 : 1;
}
