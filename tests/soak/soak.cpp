// v2x_spat_soak: the real daemon with the simulators for a chosen time and plan, watched from outside. Prints one
// table; exit status 0 when every line of it passed, 1 when one failed, 3 when something could not be looked at.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <cstdio>
#include <exception>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "log_faults.h"
#include "plans.h"
#include "supervise.h"

namespace {

struct Row {
    const char* name;
    Plan* run;
    const char* what;
    bool isForSanitizers = true;
    void (*prepare)() = [] {}; // before there is a thread
};

constexpr Row PLANS[] = {
    {"steady", planSteady, "all paths at --scale times their nominal rates for --minutes; nothing grows or is lost"},
    {"flood", planFlood,
     "each port and topic at 10, 100 and 1000 times its rate, good, damaged and random; malformed input"},
    {"peers", planPeers, "every peer killed, stopped and continued under traffic"},
    {"restarts", planRestarts, "the daemon killed and started again under traffic"},
    {"ports", planPorts, "ports taken, those of the loopback DDS too"},
    {"log", planLog, "the log's disk full, its folder gone or not writable, no descriptors left while it rotates", true,
     [] { ownMounts(); }},
    {"clock", planClock, "the wall clock set forward and back, and to 1970", false},
    {"memory", planMemory, "the n-th allocation fails, over start-up and a message of each kind", false},
    {"calls", planCalls, "the n-th system call of a kind fails", false},
    {"signals", planSignals, "signals by the thousand"},
};

constexpr int NOT_ALL_RUN = 3;

std::string planList() {
    std::string list = "Plans to run, or all:";
    for (const Row& row : PLANS) {
        list += std::string("\n  ") + row.name + ": " + row.what;
    }
    return list;
}

void runPlan(const Row& row, const Options& options, Table& table) {
    table.plan(row.name);
    if (V2X_SANITIZED && !row.isForSanitizers) {
        table.notRun("all of it", "sanitizer build");
        return;
    }
    try {
        row.run(options, table);
    } catch (const std::exception& error) {
        table.check("runs to its end", false, error.what(), "no exception");
    }
}

int run(int argc, char** argv) {
    Options options;
    std::vector<std::string> wanted = {"steady"};
    bool allowMissing = false;
    CLI::App app("Runs v2x_spat_convert under load and faults, watched from outside");
    app.option_defaults()->always_capture_default();
    app.add_option("plan", wanted, planList())->check([](const std::string& name) {
        const auto isNamed = [&](const Row& row) { return row.name == name; };
        return name == "all" || std::any_of(std::begin(PLANS), std::end(PLANS), isNamed) ? ""
                                                                                         : "no plan \"" + name + "\"";
    });
    app.add_option("--minutes", options.minutes, "Length of the steady plan")->check(CLI::Range(0.2, 1e6));
    app.add_option("--scale", options.scale, "Traffic of the steady plan, to the nominal rates")
        ->check(CLI::PositiveNumber);
    app.add_option("--times", options.times, "How often each fault is done over")->check(CLI::PositiveNumber);
    app.add_option("--malformed", options.malformed, "Malformed inputs per interface")->check(CLI::PositiveNumber);
    app.add_option("--seed", options.seed, "Of what is random");
    app.add_flag("--allow-missing", allowMissing, "Exit status 0 also when something could not be looked at");
    CLI11_PARSE(app, argc, argv);
    std::vector<const Row*> plans;
    for (const Row& row : PLANS) {
        const auto names = [&](const std::string& one) { return one == row.name || one == "all"; };
        if (std::any_of(wanted.begin(), wanted.end(), names)) {
            plans.push_back(&row);
            row.prepare();
        }
    }
    Table table;
    for (const Row* row : plans) {
        runPlan(*row, options, table);
    }
    // What the desk of the scenario tests expects of its own doing.
    table.check("the desk itself", !testing::UnitTest::GetInstance()->Failed(), "", "no fault");
    table.print(stdout);
    if (table.failed() > 0) {
        return 1;
    }
    return table.notRun() > 0 && !allowMissing ? NOT_ALL_RUN : 0;
}

} // namespace

int main(int argc, char** argv) {
    return supervise(run, argc, argv);
}
