// v2x_spat_soak: the real daemon under load and faults, watched from outside. Exit status 1 when a check failed.
#include <CLI/CLI.hpp>
#include <algorithm>
#include <exception>
#include <gtest/gtest.h>
#include <string>
#include <vector>

#include "plans.h"

namespace {

constexpr struct {
    const char* name;
    Plan* run;
    const char* what;
} PLANS[] = {
    {"steady", planSteady, "all paths at --scale times their nominal rates for --minutes; nothing grows or is lost"},
    {"flood", planFlood,
     "each port and topic at 10, 100 and 1000 times its rate, good, damaged and random; malformed input"},
    {"peers", planPeers, "DDS peers and the daemon stopped for 4 and 9 s while others join and leave"},
};

} // namespace

int main(int argc, char** argv) {
    Options options;
    std::vector<std::string> wanted = {"steady"};
    std::vector<std::string> names = {"all"};
    std::string help = "Plans to run, or all:";
    for (const auto& plan : PLANS) {
        names.emplace_back(plan.name);
        help += std::string("\n  ") + plan.name + ": " + plan.what;
    }
    CLI::App app("Runs v2x_spat_convert under load and faults, watched from outside");
    app.option_defaults()->always_capture_default();
    app.add_option("plan", wanted, help)->check(CLI::IsMember(names));
    app.add_option("--minutes", options.minutes, "Length of the steady plan")->check(CLI::Range(0.2, 1e6));
    app.add_option("--scale", options.scale, "Traffic of the steady plan, to the nominal rates")
        ->check(CLI::PositiveNumber);
    app.add_option("--times", options.times, "Repeats of each fault")->check(CLI::PositiveNumber);
    app.add_option("--malformed", options.malformed, "Malformed inputs per interface")->check(CLI::PositiveNumber);
    app.add_option("--seed", options.seed, "Seed of random input");
    CLI11_PARSE(app, argc, argv);
    Report report;
    for (const auto& plan : PLANS) {
        const auto isMeant = [&](const std::string& name) { return name == plan.name || name == "all"; };
        if (std::any_of(wanted.begin(), wanted.end(), isMeant)) {
            report.startPlan(plan.name);
            try {
                plan.run(options, report);
            } catch (const std::exception& error) {
                report.check("runs to its end", false, error.what(), "no exception");
            }
        }
    }
    // EXPECT_... in the scenario library
    report.check("the test bed itself", !testing::UnitTest::GetInstance()->Failed(), "", "no failure");
    return report.printCounts() ? 0 : 1;
}
