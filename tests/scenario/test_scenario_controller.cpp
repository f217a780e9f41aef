// A GA/T 1743 controller's frames on their way through the real daemon to the stack application.
#include <atomic>
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <thread>

#include "frame_1743.h"
#include "unit.h"

namespace {

using namespace frame_1743;
using testing::ElementsAre;
using testing::HasSubstr;
using Record = std::vector<std::string>;

TEST(ScenarioController, FramesArriveAsRecordsAndOthersDoNot) {
    Unit unit;
    unit.startAndWaitReady();
    const Bytes one = frame(payload({{0, {{1, 0x20, 25}, {2, 0x02, 0xC0}}}, {90, {{1, 0x08, 0}}}}));
    const Record oneSays = {"3", "1:5:250", "2:0:36001", "7:3:1920"};
    const Bytes two = frame(payload({{180, {{8, 0x02, 7}}}}));
    const Record twoSays = {"1", "11:3:70"};
    const struct {
        const char* what;
        Bytes datagram;
        std::vector<Record> records;
    } cases[] = {
        {"one frame", one, {oneSays}},
        {"two frames in a datagram", one + two, {oneSays, twoSays}},
        {"wrong checksum", frame(payload({{0, {{1, 2, 1}}}}), 1), {}},
        {"another kind of frame", frame(header(0x80)), {}},
        {"bytes between frames", Bytes(300, 0x41) + two + Bytes(3, 0xDB), {twoSays}},
        {"twelve groups", frame(payload({{0, std::vector<Group>(12, Group{1, 2, 1})}})), {}},
        {"a list that runs past the payload", frame(header() + Bytes(12, 0x22) + Bytes{2, 0, 0, 1, 9, 1, 2, 1}), {}},
        {"one frame again", one, {oneSays}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        unit.controller.sendTo(unit.framePort, row.datagram);
        for (const Record& record : row.records) {
            EXPECT_EQ(recordOf(unit.stack.receive().value()), record);
        }
    }
    EXPECT_FALSE(unit.stack.receive(0).has_value());
    EXPECT_THAT(unit.log(), HasSubstr("crc error,calc:"));
    EXPECT_THAT(unit.log(), HasSubstr("into light group count is too much"));
    EXPECT_THAT(unit.log(), HasSubstr("Deal into link light color status info error"));
}

// Both devices and the stack application played by the simulators: every good frame and report is one record.
TEST(ScenarioController, TheSimulatorsCountsAgree) {
    Unit unit;
    unit.startAndWaitReady();
    unit.startStackSimulator();
    unit.controller.release();
    unit.learner.release();
    std::string reports;
    std::thread learner([&] {
        reports = unit.simulate("learner", {"--target", addressOf(unit.reportPort), "--listen",
                                            std::to_string(unit.learner.port()), "--rate", "100", "--count", "300"});
    });
    // The kinds of damage that leave the neighbours alone: what arrives is exactly what is good.
    const std::string frames = unit.simulate(
        "controller", {"--target", addressOf(unit.framePort), "--listen", std::to_string(unit.controller.port()),
                       "--rate", "100", "--count", "300", "--damage", "0.2", "--damage-kinds", "crc,length,type,count",
                       "--garbage", "0.2", "--seed", "5"});
    learner.join();
    const uint64_t good = counted(frames, "good");
    EXPECT_GT(good, 200U);
    EXPECT_LT(good, 300U);
    EXPECT_EQ(counted(reports, "good"), 300U);

    std::this_thread::sleep_for(std::chrono::milliseconds(2000)); // the last frames wait up to half a second
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    const std::string received = unit.endStackSimulator();
    EXPECT_EQ(counted(received, "records"), good + 300);
    EXPECT_EQ(counted(received, "refused"), 0U);
}

// As fast as the kernel takes them, until the ring overflows; the next frame after the flood is taken as if nothing had
// been.
TEST(ScenarioController, AFloodLeavesTheLearnerAloneAndPasses) {
    Unit unit;
    unit.startAndWaitReady();
    const Bytes longFrame = frame(payload(std::vector<Link>(11, Link{0, std::vector<Group>(11, Group{1, 2, 1})})));
    const Bytes last = frame(payload({{90, {{1, 0x20, 9}}}}));
    std::atomic<bool> flood{true};
    std::thread sender([&] {
        while (flood) {
            unit.controller.sendTo(unit.framePort, longFrame);
        }
    });
    const auto arrives = [&](const Record& wanted) {
        return eventually([&] {
            const std::optional<Bytes> bytes = unit.stack.receive(100);
            return bytes.has_value() && recordOf(*bytes) == wanted;
        });
    };
    for (uint8_t second = 1; second <= 3; second++) {
        unit.learner.sendTo(unit.reportPort, {0xFE, 0xFE, 0x10, 0, 10, 0, 1, 0, 30, 2, second, 0, 0, 0, 0});
        EXPECT_TRUE(arrives({"1", "30:3:" + std::to_string(second * 10)}));
    }
    EXPECT_TRUE(eventually([&] { return unit.log().find("enqueue signal machine data error") != std::string::npos; }));
    flood = false;
    sender.join();
    while (unit.stack.receive(1000).has_value()) { // one processing run empties the ring
    }
    unit.controller.sendTo(unit.framePort, last);
    EXPECT_TRUE(arrives({"1", "2:5:90"}));
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    EXPECT_EQ(unit.err(), "");
}

} // namespace
