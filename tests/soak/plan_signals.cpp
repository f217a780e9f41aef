// Signals by the thousand, under traffic: those that the daemon ignores, and those that end it.
#include <algorithm>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <string>
#include <thread>

#include "paths.h"
#include "plans.h"

namespace {

struct Signal {
    int number;
    const char* name;
    bool isSetToIgnore; // by the daemon; the others do nothing by themselves
};
// Without those that end or stop it.
constexpr Signal SIGNALS[] = {{SIGPIPE, "SIGPIPE", true},  {SIGXFSZ, "SIGXFSZ", true}, {SIGCHLD, "SIGCHLD", false},
                              {SIGCONT, "SIGCONT", false}, {SIGURG, "SIGURG", false},  {SIGWINCH, "SIGWINCH", false}};

// It ends itself.
constexpr struct {
    int number;
    const char* name;
} STOPS[] = {{SIGINT, "SIGINT"}, {SIGQUIT, "SIGQUIT"}, {SIGTERM, "SIGTERM"}};
constexpr int64_t STOP_MS = 2000;

// The set of signals behind `key` in /proc/PID/status.
uint64_t signalSet(pid_t pid, const std::string& key) {
    const std::string status = readFile("/proc/" + std::to_string(pid) + "/status");
    const size_t at = status.find(key + ":");
    return at == std::string::npos ? 0 : strtoull(status.c_str() + at + key.size() + 1, nullptr, 16);
}

// Over a second. Returns how many were taken.
int64_t sendMany(pid_t pid, int number, int64_t count) {
    constexpr int64_t PARTS = 100;
    int64_t taken = 0;
    for (int64_t i = 0; i < count; i++) {
        taken += kill(pid, number) == 0 ? 1 : 0;
        if (i % (count / PARTS) == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    return taken;
}

void ignored(int64_t count, Table& table) {
    Unit unit;
    unit.startAndWaitReady();
    unit.startStackSimulator({"--no-replies"});
    startLearner(unit, 200);
    startController(unit, 20);
    const pid_t pid = unit.daemon->pid();
    for (const Signal& signal : SIGNALS) {
        const bool ignores = (signalSet(pid, "SigIgn") >> (signal.number - 1) & 1) != 0;
        table.check(std::string(signal.name) + " is set to be ignored", ignores == signal.isSetToIgnore,
                    ignores ? "yes" : "no", signal.isSetToIgnore ? "yes" : "no");
        table.equal(std::string(signal.name) + " sent", sendMany(pid, signal.number, count), count);
        table.equal(std::string(signal.name) + ": exit status (-1: runs)", unit.daemon->wait(0), -1);
    }
    const std::string reports = unit.endSimulator("learner");
    const std::string frames = unit.endSimulator("controller");
    std::this_thread::sleep_for(std::chrono::milliseconds(2000)); // frames wait for up to half a second
    unit.daemon->signal(SIGTERM);
    table.equal("ends when asked to, status", unit.daemon->wait(20000), 0);
    const std::string stack = unit.endStackSimulator();
    table.atLeast("reports and frames sent", static_cast<int64_t>(counted(reports, "good") + counted(frames, "good")),
                  100);
    table.equal("records of them", static_cast<int64_t>(counted(stack, "records")),
                static_cast<int64_t>(counted(reports, "good") + counted(frames, "good")));
    table.equal("records refused", static_cast<int64_t>(counted(stack, "refused")), 0);
}

// As fast as they can be sent; the first ones meet a daemon at work, the later ones its end.
void stopped(int number, const std::string& name, int64_t count, Table& table) {
    Unit unit;
    unit.corrections = "SpatDown = true; ReplyItems = true;";
    unit.startAndWaitReady();
    const StackDesk desk(unit.stack);
    startLearner(unit, 200);
    startController(unit, 20);
    startCloud(unit);
    table.check(name + ": traffic before", eventually([&] {
                    return desk.of(LEARNER) > 0 && desk.of(CONTROLLER) > 0 && desk.of(CLOUD) > 0 &&
                           documentsUp(unit) > 0;
                }),
                "records and documents", "on each path");
    const auto start = std::chrono::steady_clock::now();
    int64_t taken = 0;
    for (int64_t i = 0; i < count; i++) {
        taken += kill(unit.daemon->pid(), number) == 0 ? 1 : 0;
    }
    const int status = unit.daemon->wait(20000);
    const auto took = std::chrono::steady_clock::now() - start;
    const std::string out = unit.out();
    table.equal(name + " sent", taken, count);
    table.equal(name + ": exit status (-1: runs)", status, 0);
    table.atMost(name + ": end after the first", std::chrono::duration_cast<std::chrono::milliseconds>(took).count(),
                 STOP_MS, "ms");
    table.atLeast(name + ": caught", std::count(out.begin(), out.end(), '\n'), 1, "times");
    table.check(name + ": standard error", unit.err().empty(), unit.err().substr(0, 200), "empty");
}

} // namespace

void planSignals(const Options& options, Table& table) {
    const int64_t count = std::max<int64_t>(int64_t{500} * options.times, 100); // 10,000 by default
    ignored(count, table);
    for (const auto& stop : STOPS) {
        stopped(stop.number, stop.name, count, table);
    }
}
