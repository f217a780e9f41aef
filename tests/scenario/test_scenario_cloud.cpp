// The real daemon between devices, stack application and cloud: bad documents, lost peers, its stop, log control.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <thread>

#include "frame_1743.h"
#include "messages.h"
#include "unit.h"

namespace {

using testing::HasSubstr;

// Documents in fragments, bad ones among them: each good one becomes one record.
TEST(ScenarioCloud, DocumentsBecomeRecords) {
    Unit unit;
    unit.corrections = "SpatDown = true;";
    unit.startAndWaitReady();
    unit.startStackSimulator({"--no-replies"});
    unit.startCloudSimulator({"--rate", "50", "--count", "200", "--status", "none", "--phases", "12", "--bad-documents",
                              "0.2", "--bad-document-kinds", "syntax,empty,missing-key", "--seed", "7"});
    EXPECT_TRUE(
        eventually([&] { return unit.simulatorOutput("cloud").find("\"summary\"") != std::string::npos; }, 60000));
    std::this_thread::sleep_for(std::chrono::milliseconds(2000));
    const std::string cloud = unit.endSimulator("cloud");
    const std::string stack = unit.endStackSimulator();
    EXPECT_EQ(counted(cloud, "down"), 200U);
    EXPECT_GT(counted(cloud, "downBad"), 20U);
    EXPECT_EQ(counted(stack, "records"), counted(cloud, "downGood"));
    EXPECT_EQ(counted(stack, "refused"), 0U);
    EXPECT_EQ(counted(stack, "phaseStates"), 12 * counted(cloud, "downGood"));
}

TEST(ScenarioCloud, TrafficContinuesWhenPeersReturn) {
    Unit unit;
    unit.startCloudSimulator({"--rate", "0", "--status", "1", "--status-interval", "0.5"});
    unit.startAndWaitReady();
    EXPECT_TRUE(eventually([&] { return unit.log().find("/spat/up: 1 readers") != std::string::npos; }));
    const auto startReplies = [&](const std::vector<std::string>& options) {
        unit.startStackSimulator(options);
        unit.startDevice("learner", 10, {"--phases", "4", "--count", "2"});
        unit.endSimulator("learner", 0);
    };
    const auto documents = [&] { return occurrences(unit.simulatorOutput("cloud"), "\"phaseId\":4"); };
    const auto documentsArrive = [&](size_t count = 2) { return eventually([&] { return documents() >= count; }); };
    startReplies({"--bad-replies", "0.4", "--seed", "3"});
    EXPECT_TRUE(documentsArrive(4));
    const std::string replies = unit.endStackSimulator();
    EXPECT_TRUE(documentsArrive(counted(replies, "repliesGood")));
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // a surplus document would wait up to 0.3 s
    EXPECT_GT(counted(replies, "repliesBad"), 0U);
    EXPECT_EQ(documents(), counted(replies, "repliesGood")) << "bad replies cost no good one";
    startReplies({});
    EXPECT_THAT(unit.simulatorOutput("cloud"), HasSubstr(R"("intersectionId":{"region":1,"id":2})"));
    EXPECT_TRUE(eventually([&] { return unit.log().find("cloud available") != std::string::npos; })) << unit.log();
    unit.endSimulator("cloud", SIGKILL);
    unit.startCloudSimulator({"--rate", "0", "--status", "1", "--status-interval", "0.5"});
    EXPECT_TRUE(documentsArrive()) << "after the cloud's restart";
    unit.daemon->signal(SIGKILL);
    EXPECT_EQ(unit.daemon->wait(20000), 128 + SIGKILL);
    const size_t before = documents();
    unit.startAndWaitReady();
    EXPECT_TRUE(documentsArrive(before + 2)) << "after the daemon's restart";
    unit.endSimulator("cloud");
    unit.endStackSimulator();
}

// Sends without a pause: long frames of the controller, more than the daemon's byte ring holds, invalid reports and
// requests of the log tool.
void flood(const Unit& unit, const std::stop_token& stop) {
    using namespace frame_1743;
    const UdpPeer sender;
    const Bytes longFrame = frame(payload(std::vector<Link>(11, Link{0, std::vector<Group>(11, Group{1, 2, 1})})));
    const Bytes cutReport = hex("FEFE10 000A 0001");
    while (!stop.stop_requested()) {
        sender.sendTo(unit.framePort, longFrame);
        sender.sendTo(unit.reportPort, cutReport);
        sender.sendTo(unit.logToolPort, LOG_REQUEST);
    }
}

TEST(ScenarioCloud, StopsCleanlyUnderFullTraffic) {
    const char* wanted = getenv("V2X_STOP_ROUNDS");
    const int rounds = wanted != nullptr ? atoi(wanted) : V2X_SANITIZED != 0 ? 3 : 5;
    Unit unit;
    unit.corrections = "SpatDown = true; ReplyItems = true;";
    unit.startStackSimulator();
    unit.startCloudSimulator({"--rate", "50", "--status", "alternate", "--status-interval", "0.05", "--quiet"});
    unit.startDevice("learner", 200);
    unit.startDevice("controller", 50);
    const std::jthread flooder([&](const std::stop_token& stop) { flood(unit, stop); });
    for (int round = 0; round < rounds; round++) {
        unit.startAndWaitReady({"-d", round % 2 == 0 ? "4" : "7"});
        std::this_thread::sleep_for(std::chrono::milliseconds(500 + 73 * (round % 10))); // all tasks run by then
        if (round == 0) {
            ASSERT_TRUE(
                eventually([&] { return unit.log().find("enqueue signal machine data error") != std::string::npos; }));
        }
        unit.daemon->signal(SIGTERM);
        ASSERT_EQ(unit.daemon->wait(10000), 0) << "round " << round << "\n" << unit.err();
        ASSERT_EQ(unit.err(), "");
        ASSERT_EQ(unit.out(), "Caught SIGTERM (1)\n");
        ASSERT_EQ(unit.notify.receive(), "STOPPING=1");
    }
}

TEST(ScenarioCloud, LogToolListsAndSetsLevels) {
    Unit unit;
    unit.startAndWaitReady();
    const auto tool = [&](std::vector<std::string> arguments, const std::string& timeout = "20") {
        const std::string base = unit.folder.path() + "/tool";
        arguments.insert(arguments.begin(), V2X_BIN "/v2x_logtool");
        arguments.insert(arguments.end(), {"--port", std::to_string(unit.logToolPort), "--timeout", timeout});
        const int status = Process(arguments, {}, base + ".out", base + ".err").wait(30000);
        return std::to_string(status) + "\n" + readFile(base + ".out") + readFile(base + ".err");
    };
    std::string tags = "0\n";
    for (const char* tag : {"UDPA", "TASK", "MQPS", "MCFG", "SPAT", "SDDS", "SCFG", "INTF", "SINF", "SCOM", "DOWN",
                            "SPUP", "VCFG", "UPER", "1743", "QUOR", "LSKU", "VIPC"}) {
        tags += std::string(tag) + "     4 info\n";
    }
    EXPECT_EQ(tool({"list"}), tags);
    EXPECT_EQ(tool({"set", "ALL", "7"}), "0\nALL      7 trace\n");
    EXPECT_TRUE(eventually([&] {
        return unit.log().find(" T INTF ") != std::string::npos || unit.log().find(" T SINF ") != std::string::npos;
    }));
    EXPECT_EQ(tool({"set", "ALL", "info"}), "0\nALL      4 info\n");
    EXPECT_EQ(tool({"set", "NONE", "4"}, "0.2"),
              "1\nv2x_logtool: no answer from 127.0.0.1 port " + std::to_string(unit.logToolPort) +
                  " within 0.2 s: no daemon listens there, or it has no tag \"NONE\"\n");
    EXPECT_TRUE(
        eventually([&] { return unit.log().find("exec v2xlog_GetTagHandle error ret=-3") != std::string::npos; }));
}

} // namespace
