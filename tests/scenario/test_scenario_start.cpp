// Start-up, configuration errors and the service manager's view, with the real daemon.
#include <csignal>
#include <filesystem>
#include <gtest/gtest.h>

#include "unit.h"

namespace {

void expectStopSignalsAtMainAlone(pid_t pid) {
    const uint64_t stopSignals = 1U << (SIGINT - 1) | 1U << (SIGQUIT - 1) | 1U << (SIGTERM - 1);
    int others = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        const std::string status = readFile(task.path().string() + "/status");
        if (status.empty()) {
            continue; // it has ended meanwhile
        }
        const uint64_t blocked = std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
        const bool isMain = task.path().filename() == std::to_string(pid);
        others += isMain ? 0 : 1;
        EXPECT_EQ(blocked & stopSignals, isMain ? 0 : stopSignals) << status;
    }
    EXPECT_GE(others, 10);
}

TEST(ScenarioStart, TheServiceManagerIsToldAndItsWatchdogServed) {
    Unit unit;
    unit.startAndWaitReady({}, {"WATCHDOG_USEC=200000"});
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(unit.notify.receive(), "WATCHDOG=1");
    }
    expectStopSignalsAtMainAlone(unit.daemon->pid());
    unit.daemon->signal(SIGINT);
    std::string told;
    while ((told = unit.notify.receive()) == "WATCHDOG=1") {
    }
    EXPECT_EQ(told, "STOPPING=1");
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    EXPECT_EQ(unit.out(), "Caught SIGINT (1)\n");
}

TEST(ScenarioStart, AConfigurationThatCannotBeLoadedEndsItWithOneLine) {
    const struct {
        const char* what;
        std::string workDir; // below the unit's own
        std::string cfg;     // @ stands for the unit's work directory
        std::string line;    // on standard error
    } cases[] = {
        {"no file", "/nowhere", "", "@/nowhere/conf/v2x_spat_convert.cfg: No such file or directory\n"},
        {"syntax", "", "rsuSpatConfigInfo = {\n  nodeId = ;\n};", "@/conf/v2x_spat_convert.cfg:2: syntax error\n"},
        {"a key of the wrong type", "", "rsuSpatConfigInfo = {\n Sysinfoname = 5;\n};",
         "@/conf/v2x_spat_convert.cfg:2: rsuSpatConfigInfo.Sysinfoname: expected a string, found an integer\n"},
        {"no identity", "", "rsuSpatConfigInfo = { Sysinfoname = \"@/conf/v2x_ipc.cfg\"; };",
         "@/conf/v2x_ipc.cfg: device_id: missing, empty or longer than 31 characters\n"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        Unit unit;
        const auto filled = [&](std::string text) {
            for (size_t at = 0; (at = text.find("@/", at)) != std::string::npos;) {
                text.replace(at, 1, unit.folder.path());
            }
            return text;
        };
        unit.cfg = filled(row.cfg);
        unit.start({"-w", unit.folder.path() + row.workDir});
        EXPECT_EQ(unit.daemon->wait(20000), 0);
        EXPECT_EQ(unit.err(), "v2x_spat_convert: " + filled(row.line));
        EXPECT_EQ(unit.notify.receive(0), "STOPPING=1") << "and never READY=1";
    }
}

} // namespace
