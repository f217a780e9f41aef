// The real daemon between devices, stack application and cloud: bad documents, peers that go away, its own end, and log
// control.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "frame_1743.h"
#include "unit.h"

namespace {

using testing::HasSubstr;

// How often `text` stands in `all`.
size_t times(const std::string& all, const std::string& text) {
    size_t count = 0;
    for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + text.size())) {
        count++;
    }
    return count;
}

// Documents of the cloud, in pieces and with bad ones between them: every good one is one record.
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

TEST(ScenarioCloud, TrafficComesBackWithItsPeers) {
    Unit unit;
    unit.startCloudSimulator({"--rate", "0", "--status", "1", "--status-interval", "0.5"});
    unit.startAndWaitReady();
    EXPECT_TRUE(eventually([&] { return unit.log().find("/spat/up: 1 readers") != std::string::npos; }));
    unit.learner.release();
    const auto startReplies = [&](const std::vector<std::string>& options) {
        unit.startStackSimulator(options);
        unit.simulate("learner",
                      {"--target", addressOf(unit.reportPort), "--listen", std::to_string(unit.learner.port()),
                       "--rate", "10", "--phases", "4", "--count", "2"});
    };
    const auto documents = [&] { return times(unit.simulatorOutput("cloud"), "\"phaseId\":4"); };
    const auto documentsArrive = [&](size_t count = 2) { return eventually([&] { return documents() >= count; }); };
    startReplies({"--bad-replies", "0.4", "--seed", "3"});
    EXPECT_TRUE(documentsArrive(4));
    const std::string replies = unit.endStackSimulator();
    EXPECT_TRUE(documentsArrive(counted(replies, "repliesGood")));
    std::this_thread::sleep_for(std::chrono::milliseconds(500)); // a document too many waits up to 0.3 s
    EXPECT_GT(counted(replies, "repliesBad"), 0U);
    EXPECT_EQ(documents(), counted(replies, "repliesGood")) << "the bad ones keep back none of the good ones";
    startReplies({});
    EXPECT_THAT(unit.simulatorOutput("cloud"), HasSubstr(R"("intersectionId":{"region":1,"id":2})"));
    EXPECT_TRUE(eventually([&] { return unit.log().find("cloud available") != std::string::npos; })) << unit.log();
    unit.endSimulator("cloud", SIGKILL);
    unit.startCloudSimulator({"--rate", "0", "--status", "1", "--status-interval", "0.5"});
    EXPECT_TRUE(documentsArrive()) << "the cloud anew";
    unit.daemon->signal(SIGKILL);
    EXPECT_EQ(unit.daemon->wait(20000), 128 + SIGKILL);
    const size_t before = documents();
    unit.startAndWaitReady();
    EXPECT_TRUE(documentsArrive(before + 2)) << "the daemon anew";
    unit.endSimulator("cloud");
    unit.endStackSimulator();
}

// Sends without a pause while it lives: long frames of the controller, more than the ring between the daemon's threads
// holds, and reports that are refused.
class Flood {
public:
    explicit Flood(const Unit& unit) : m_thread([this, &unit] { run(unit); }) {}
    ~Flood() {
        m_isOver = true;
        m_thread.join();
    }
    Flood(const Flood&) = delete;
    Flood& operator=(const Flood&) = delete;

private:
    void run(const Unit& unit) const {
        using namespace frame_1743;
        const Bytes longFrame = frame(payload(std::vector<Link>(11, Link{0, std::vector<Group>(11, Group{1, 2, 1})})));
        const Bytes cutReport = hex("FEFE10 000A 0001");
        while (!m_isOver) {
            m_sender.sendTo(unit.framePort, longFrame);
            m_sender.sendTo(unit.reportPort, cutReport);
        }
    }

    const UdpPeer m_sender;
    std::atomic<bool> m_isOver{false};
    std::thread m_thread;
};

TEST(ScenarioCloud, AStopRequestUnderFullTrafficEndsCleanly) {
    const char* wanted = getenv("V2X_STOP_ROUNDS");
    const int rounds = wanted != nullptr ? atoi(wanted) : 5;
    Unit unit;
    unit.corrections = "SpatDown = true; ReplyItems = true;";
    unit.learner.release();
    unit.controller.release();
    unit.startStackSimulator();
    unit.startCloudSimulator({"--rate", "50", "--status", "alternate", "--status-interval", "0.05", "--quiet"});
    unit.startSimulator("learner", {"--target", addressOf(unit.reportPort), "--listen",
                                    std::to_string(unit.learner.port()), "--rate", "200", "--quiet"});
    unit.startSimulator("controller", {"--target", addressOf(unit.framePort), "--listen",
                                       std::to_string(unit.controller.port()), "--rate", "50", "--quiet"});
    const Flood flood(unit);
    std::chrono::milliseconds longest(0);
    for (int round = 0; round < rounds; round++) {
        unit.startAndWaitReady({"-d", round % 2 == 0 ? "4" : "7"});
        std::this_thread::sleep_for(std::chrono::milliseconds(500 + 73 * (round % 10))); // into all of its tasks
        if (round == 0) {
            ASSERT_TRUE(
                eventually([&] { return unit.log().find("enqueue signal machine data error") != std::string::npos; }));
        }
        const auto asked = std::chrono::steady_clock::now();
        unit.daemon->signal(SIGTERM);
        const int status = unit.daemon->wait(30000);
        longest = std::max(
            longest, std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - asked));
        ASSERT_EQ(status, 0) << "round " << round << "\n" << unit.err();
        ASSERT_EQ(unit.err(), "");
        ASSERT_EQ(unit.out(), "Caught SIGTERM (1)\n");
        ASSERT_EQ(unit.notify.receive(), "STOPPING=1");
    }
    printf("%d stops, the longest took %ld ms\n", rounds, static_cast<long>(longest.count()));
}

TEST(ScenarioCloud, TheLogToolSeesAndSetsLevels) {
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
