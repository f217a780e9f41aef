// Signals by the thousand, under traffic: those that the daemon ignores, and those that end it.
#include <algorithm>
#include <csignal>
#include <string>

#include "paths.h"
#include "plans.h"
#include "watch.h"

namespace {

constexpr Rates MANY = {200, 20, RATES[CLOUD]};
constexpr int64_t STOP_MS = 2000;

struct Signal {
    std::string name;
    int number;
    bool isSetToIgnore = false; // by the daemon
};
// Without those that end or stop it; the others do nothing by themselves.
const Signal SIGNALS[] = {{"SIGPIPE", SIGPIPE, true}, {"SIGXFSZ", SIGXFSZ, true}, {"SIGCHLD", SIGCHLD},
                          {"SIGCONT", SIGCONT},       {"SIGURG", SIGURG},         {"SIGWINCH", SIGWINCH}};
// It ends itself.
const Signal STOPS[] = {{"SIGINT", SIGINT}, {"SIGQUIT", SIGQUIT}, {"SIGTERM", SIGTERM}};

// In so many parts with a pause of 10 ms behind each. Returns how many were taken.
int64_t sendMany(pid_t pid, int number, int64_t count, int64_t parts) {
    int64_t taken = 0;
    for (int64_t i = 0; i < count; i++) {
        taken += kill(pid, number) == 0 ? 1 : 0;
        if (parts > 0 && i % (count / parts) == 0) {
            std::this_thread::sleep_for(std::chrono::milliseconds(10));
        }
    }
    return taken;
}

void ignored(int64_t count, Table& table) {
    constexpr int64_t PARTS = 100; // a second
    Unit unit;
    unit.startAndWaitReady();
    unit.startStackSimulator({"--no-replies"});
    startSource(unit, LEARNER, MANY[LEARNER]);
    startSource(unit, CONTROLLER, MANY[CONTROLLER]);
    const pid_t pid = unit.daemon->pid();
    for (const Signal& signal : SIGNALS) {
        const bool ignores = (statusField(pid, "SigIgn", 16) >> (signal.number - 1) & 1) != 0;
        table.check(signal.name + " is set to be ignored", ignores == signal.isSetToIgnore, ignores ? "yes" : "no",
                    signal.isSetToIgnore ? "yes" : "no");
        table.equal(signal.name + " sent", sendMany(pid, signal.number, count, PARTS), count);
        checkLives(unit, signal.name, table);
    }
    const auto sent = static_cast<int64_t>(endSource(unit, LEARNER) + endSource(unit, CONTROLLER));
    std::this_thread::sleep_for(std::chrono::milliseconds(2000)); // frames wait for up to half a second
    checkEnds(unit, "ends when asked to", table);
    const std::string stack = unit.endStackSimulator();
    table.atLeast("reports and frames sent", sent, 100);
    table.equal("records of them", static_cast<int64_t>(counted(stack, "records")), sent);
    table.equal("records refused", static_cast<int64_t>(counted(stack, "refused")), 0);
}

// As fast as they can be sent; the first ones meet a daemon at work, the later ones its end.
void stopped(const Signal& signal, int64_t count, Table& table) {
    Site unit;
    unit.startAndWaitReady();
    const StackDesk desk(unit.stack);
    startSources(unit, MANY);
    checkTraffic(unit, desk, signal.name + ": traffic before", table);
    const Stopwatch first;
    table.equal(signal.name + " sent", sendMany(unit.daemon->pid(), signal.number, count, 0), count);
    table.equal(signal.name + ": exit status (-1: runs)", unit.daemon->wait(20000), 0);
    table.atMost(signal.name + ": end after the first", first.ms(), STOP_MS, "ms");
    const std::string out = unit.out();
    table.atLeast(signal.name + ": caught", std::count(out.begin(), out.end(), '\n'), 1, "times");
    table.check(signal.name + ": standard error", unit.err().empty(), unit.err().substr(0, 200), "empty");
}

} // namespace

void planSignals(const Options& options, Table& table) {
    const int64_t count = std::max<int64_t>(int64_t{500} * options.times, 100); // 10,000 by default
    ignored(count, table);
    for (const Signal& stop : STOPS) {
        stopped(stop, count, table);
    }
}
