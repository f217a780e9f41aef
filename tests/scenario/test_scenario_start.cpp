// Start-up, configuration errors and the service manager's view, with the real daemon.
#include <csignal>
#include <filesystem>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <unistd.h>

#include "unit.h"

namespace {

using testing::HasSubstr;

size_t linesOf(const std::string& text) {
    return static_cast<size_t>(std::count(text.begin(), text.end(), '\n'));
}

TEST(ScenarioStart, TheServiceManagerIsToldAndItsWatchdogServed) {
    Unit unit;
    unit.startAndWaitReady({}, {"WATCHDOG_USEC=200000"});
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(unit.notify.receive(), "WATCHDOG=1");
    }
    unit.daemon->signal(SIGINT);
    std::string told;
    while ((told = unit.notify.receive()) == "WATCHDOG=1") {
    }
    EXPECT_EQ(told, "STOPPING=1");
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    EXPECT_EQ(unit.out(), "Caught SIGINT (1)\n");
}

TEST(ScenarioStart, AServiceManagerThatAskedForNoWatchdogHearsOfStartAndStopAlone) {
    Unit unit;
    unit.startAndWaitReady({}, {"WATCHDOG_USEC="});
    unit.learner.receive(); // a heartbeat: the main loop is under way
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.notify.receive(), "STOPPING=1");
    EXPECT_EQ(unit.daemon->wait(20000), 0);
}

TEST(ScenarioStart, AConfigurationThatCannotBeLoadedEndsItWithOneLine) {
    const struct {
        const char* what;
        std::string cfg;     // @ stands for the work directory
        std::string sysinfo; // "" = no such file
        std::string line;    // on standard error
    } cases[] = {
        {"syntax", "rsuSpatConfigInfo = {\n  nodeId = ;\n};", "x", "@/conf/v2x_spat_convert.cfg:2: syntax error"},
        {"include", "\n@include \"other.cfg\"\n", "x", "@/conf/v2x_spat_convert.cfg:2: "},
        {"a key is missing", "rsuSpatConfigInfo = { nodeId = 1; };", "x",
         "@/conf/v2x_spat_convert.cfg: rsuSpatConfigInfo.Sysinfoname: not found"},
        {"a key of the wrong type", "rsuSpatConfigInfo = {\n Sysinfoname = 5;\n};", "x",
         "@/conf/v2x_spat_convert.cfg:2: rsuSpatConfigInfo.Sysinfoname: expected a string"},
        {"no system information", "rsuSpatConfigInfo = { Sysinfoname = \"@/conf/sysinfo.xml\"; };", "",
         "@/conf/sysinfo.xml: device_id: the file cannot be read"},
        {"no identity", "rsuSpatConfigInfo = { Sysinfoname = \"@/conf/sysinfo.xml\"; };", "<device_id></device_id>",
         "@/conf/sysinfo.xml: device_id: missing, empty or longer than 31 characters"},
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
        std::filesystem::remove(unit.folder.path() + "/conf/sysinfo.xml");
        if (!row.sysinfo.empty()) {
            writeFile(unit.folder.path() + "/conf/sysinfo.xml", row.sysinfo);
        }
        unit.start();
        EXPECT_EQ(unit.daemon->wait(20000), 0);
        EXPECT_THAT(unit.err(), testing::StartsWith("v2x_spat_convert: " + filled(row.line)));
        EXPECT_EQ(linesOf(unit.err()), 1U) << unit.err();
        EXPECT_EQ(unit.notify.receive(0), "STOPPING=1") << "and never READY=1";
    }
}

TEST(ScenarioStart, AMissingConfigurationFileEndsItWithOneLine) {
    Unit unit;
    unit.start({"-w", unit.folder.path() + "/nowhere"});
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    EXPECT_EQ(unit.err(), "v2x_spat_convert: " + unit.folder.path() +
                              "/nowhere/conf/v2x_spat_convert.cfg: No such file or directory\n");
}

TEST(ScenarioStart, AWrongTypeElsewhereIsLoggedAndTheDaemonRuns) {
    Unit unit;
    unit.identity = "nodeId = \"two\"; regionId = 1;";
    unit.startAndWaitReady();
    EXPECT_THAT(unit.log(), HasSubstr("v2x_spat_convert.cfg:5: rsuSpatConfigInfo.nodeId: expected an integer"));
    unit.learner.sendTo(unit.reportPort, hex("FEFE10 0003 000000"));
    EXPECT_EQ(unit.stack.receive().value().at(28), 0) << "node 0";
    EXPECT_EQ(unit.err(), "");
}

TEST(ScenarioStart, APortInUseIsNamedAndTheRestRuns) {
    Unit unit;
    unit.held[2].release();
    const Peer logTool(unit.logToolPort);
    unit.startAndWaitReady();
    EXPECT_THAT(unit.log(), HasSubstr("SocketInit LogTool error ret=-3"));
    EXPECT_THAT(unit.log(), testing::ContainsRegex("SPAT_C_LOGTOOL.*" + std::to_string(unit.logToolPort) +
                                                   ".*Address already in use"));
    unit.learner.sendTo(unit.reportPort, hex("FEFE10 0003 000000"));
    EXPECT_TRUE(unit.stack.receive().has_value());

    Unit second;
    second.held[0].release();
    const Peer taken(second.reportPort);
    second.startAndWaitReady();
    EXPECT_THAT(second.log(), HasSubstr("v2xpub_UdpSocketInit end ret=-3"));
    EXPECT_THAT(second.log(), testing::ContainsRegex("QUOR_RECV_SG.*" + std::to_string(second.reportPort) +
                                                     ".*Address already in use"));
}

TEST(ScenarioStart, ALogThatCannotBeWrittenIsSaidOnceAndTheDaemonRuns) {
    Unit unit;
    writeFile(unit.folder.path() + "/file", "");
    unit.logPath = unit.folder.path() + "/file/spat_conv.log"; // a file where the folder should be
    unit.startAndWaitReady();
    EXPECT_THAT(unit.err(), testing::StartsWith("v2xlog: cannot write " + unit.logPath + ": Not a directory"));
    unit.learner.sendTo(unit.reportPort, hex("FEFE10 0003 000000"));
    EXPECT_TRUE(unit.stack.receive().has_value());
}

TEST(ScenarioStart, ADisabledLearnerOpensNothing) {
    Unit unit;
    unit.learnerEnabled = "false";
    unit.startAndWaitReady();
    const Peer free(unit.reportPort); // the port is not taken
    EXPECT_FALSE(unit.learner.receive(1500).has_value()) << "no heartbeat";
}

} // namespace
