// The real daemon between devices, stack application and cloud: lost peers, its stop, log control.
#include <gtest/gtest.h>

#include <thread>

#include "frame_1743.h"
#include "messages.h"
#include "unit.h"

namespace {

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
    const auto documentsArrive = [&](size_t count) { return eventually([&] { return documents() >= count; }); };
    startReplies({"--bad-replies", "0.4", "--seed", "3"});
    EXPECT_TRUE(documentsArrive(4));
    const std::string replies = unit.endSimulator("stack");
    EXPECT_TRUE(documentsArrive(counted(replies, "repliesGood")));
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // a surplus document would wait up to 0.3 s
    EXPECT_GT(counted(replies, "repliesBad"), 0U);
    EXPECT_EQ(documents(), counted(replies, "repliesGood")) << "bad replies cost no good one";
    startReplies({});
    EXPECT_GT(occurrences(unit.simulatorOutput("cloud"), R"("intersectionId":{"region":1,"id":2})"), 0U);
    EXPECT_TRUE(eventually([&] { return occurrences(unit.log(), "cloud available") > 0; })) << unit.log();
    unit.endSimulator("cloud", SIGKILL);
    unit.startCloudSimulator({"--rate", "0", "--status", "1", "--status-interval", "0.5"});
    EXPECT_TRUE(documentsArrive(2)) << "after the cloud's restart";
    unit.endSimulator("cloud");
}

TEST(ScenarioCloud, StopsCleanlyUnderFullTraffic) {
    using namespace frame_1743;
    constexpr int ROUNDS = V2X_SANITIZED != 0 ? 3 : 5;
    Unit unit;
    unit.corrections = "SpatDown = true; ReplyItems = true;";
    unit.startStackSimulator();
    unit.startCloudSimulator({"--rate", "50", "--status", "alternate", "--status-interval", "0.05", "--quiet"});
    unit.startDevice("learner", 200);
    unit.startDevice("controller", 50);
    // Without a pause: more than the daemon's byte ring holds, invalid reports and requests of the log tool.
    const Bytes longFrame = frame(payload(std::vector<Link>(11, Link{0, std::vector<Group>(11, Group{1, 2, 1})})));
    const std::jthread flooder([&](const std::stop_token& stop) {
        const UdpPeer sender;
        while (!stop.stop_requested()) {
            sender.sendTo(unit.framePort, longFrame);
            sender.sendTo(unit.reportPort, hex("FEFE10 000A 0001"));
            sender.sendTo(unit.logToolPort, LOG_REQUEST);
        }
    });
    for (int round = 0; round < ROUNDS; round++) {
        unit.startAndWaitReady({"-d", round % 2 == 0 ? "4" : "7"});
        std::this_thread::sleep_for(std::chrono::milliseconds(500 + 73 * (round % 10))); // all tasks run by then
        if (round == 0) {
            ASSERT_TRUE(eventually([&] { return occurrences(unit.log(), "enqueue signal machine data error") > 0; }));
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
    const auto tool = [&](std::vector<std::string> arguments) {
        const std::string base = unit.folder.path() + "/tool";
        arguments.insert(arguments.begin(), V2X_BIN "/v2x_logtool");
        arguments.insert(arguments.end(), {"--port", std::to_string(unit.logToolPort), "--timeout", "20"});
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
    EXPECT_TRUE(eventually([&] { return occurrences(unit.log(), " T ") > 0; }));
    EXPECT_EQ(tool({"set", "ALL", "info"}), "0\nALL      4 info\n");
}

} // namespace
