// A learner's reports and a controller's frames on their way through the real daemon to the stack application.
#include <csignal>
#include <ctime>
#include <gtest/gtest.h>
#include <thread>

#include "unit.h"

namespace {

uint64_t number(const Bytes& bytes, size_t at, size_t size) {
    uint64_t value = 0;
    for (size_t i = 0; i < size; i++) {
        value |= static_cast<uint64_t>(bytes.at(at + i)) << (8 * i);
    }
    return value;
}

TEST(ScenarioDevices, TheExampleReportArrivesByteForByte) {
    Unit unit;
    unit.startAndWaitReady({}, {"WATCHDOG_USEC="});
    const uint64_t before = static_cast<uint64_t>(time(nullptr));
    unit.learner.sendTo(unit.reportPort, hex("FEFE10 000A 000100 03010F00000000"));
    Bytes frame = unit.receiveRecord().value();
    ASSERT_EQ(frame.size(), 58U);
    // The three time fields first, then the rest with these blanked.
    const uint64_t seconds = number(frame, 4, 8) / 1000000;
    EXPECT_GE(seconds, before);
    EXPECT_LE(seconds, before + 20);
    const tm utc = *gmtime(reinterpret_cast<const time_t*>(&seconds));
    const int64_t moy = (utc.tm_yday * 24 + utc.tm_hour) * 60 + utc.tm_min;
    EXPECT_NEAR(static_cast<double>(number(frame, 34, 4)), static_cast<double>(moy), 1);
    EXPECT_LT(number(frame, 38, 2), 60000U);
    std::fill(frame.begin() + 4, frame.begin() + 12, uint8_t{0});
    std::fill(frame.begin() + 34, frame.begin() + 40, uint8_t{0});
    EXPECT_EQ(frame, hex("A55A 04 00 0000000000000000 1400 2900 00  01000000 18000000 1E00 00"
                         "02000100 0000 00000000 0000 01  03 01 01 05 0000 9600 FFFF FFFF FFFF FFFF FF"));
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.notify.receive(), "STOPPING=1") << "and no sign of life for a manager that asked for none";
    EXPECT_EQ(unit.daemon->wait(20000), 0);
}

// Both devices and the stack application played by the simulators: every report that is framed well and every good
// frame is one record, and nothing else is.
TEST(ScenarioDevices, TheSimulatorsCountsAgree) {
    Unit unit;
    unit.startAndWaitReady();
    unit.startStackSimulator();
    unit.controller.release();
    unit.learner.release();
    std::string reports;
    std::thread learner([&] {
        reports = unit.simulate("learner", {"--target", addressOf(unit.reportPort), "--listen",
                                            std::to_string(unit.learner.port()), "--rate", "300", "--count", "1000",
                                            "--damage", "0.2", "--seed", "7"});
    });
    // The kinds of damage that leave the neighbours alone: what arrives is exactly what is good.
    const std::string frames = unit.simulate(
        "controller", {"--target", addressOf(unit.framePort), "--listen", std::to_string(unit.controller.port()),
                       "--rate", "50", "--count", "300", "--damage", "0.2", "--damage-kinds", "crc,length,type,count",
                       "--garbage", "0.2", "--seed", "5"});
    learner.join();
    const uint64_t framed = counted(reports, "good") + counted(reports, "countTooHigh");
    EXPECT_GT(framed, 700U);
    EXPECT_LT(framed, 1000U);
    EXPECT_GE(counted(reports, "heartbeats"), 1U);
    const uint64_t good = counted(frames, "good");
    EXPECT_GT(good, 200U);
    EXPECT_LT(good, 300U);

    std::this_thread::sleep_for(std::chrono::milliseconds(2000)); // the last frames wait up to half a second
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    EXPECT_EQ(unit.err(), "");
    const std::string received = unit.endStackSimulator();
    EXPECT_EQ(counted(received, "records"), framed + good);
    EXPECT_EQ(counted(received, "refused"), 0U);
}

} // namespace
