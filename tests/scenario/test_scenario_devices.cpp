// Reports, frames and documents through the real daemon to the stack application.
#include <csignal>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <gtest/gtest.h>
#include <thread>

#include "frame_1743.h"
#include "unit.h"

namespace {

uint64_t number(const Bytes& bytes, size_t at, size_t size) {
    uint64_t value = 0;
    for (size_t i = 0; i < size; i++) {
        value |= static_cast<uint64_t>(bytes.at(at + i)) << (8 * i);
    }
    return value;
}

// How far a record's two times are from this one, the larger of both in milliseconds. The daemon's time zone is UTC.
int64_t timeError(const Bytes& record, int64_t wallSeconds) {
    const tm utc = *gmtime(&wallSeconds);
    const int64_t ofYear = ((utc.tm_yday * 24 + utc.tm_hour) * 60 + utc.tm_min) * int64_t{60000} + utc.tm_sec * 1000;
    const auto sent = static_cast<int64_t>(number(record, 4, 8) / 1000);
    const auto stamp = static_cast<int64_t>(number(record, 34, 4) * 60000 + number(record, 38, 2));
    return std::max(std::abs(sent - wallSeconds * 1000), std::abs(stamp - ofYear));
}

const Bytes EXAMPLE = hex("FEFE10 000A 000100 03010F00000000");

TEST(ScenarioDevices, ExampleReportArrivesByteForByte) {
    Unit unit;
    unit.startAndWaitReady();
    unit.learner.sendTo(unit.reportPort, EXAMPLE);
    Bytes record = unit.receiveRecord().value();
    ASSERT_EQ(record.size(), 58U);
    // The three time fields first, then the rest without them.
    EXPECT_LE(timeError(record, time(nullptr)), 2000);
    std::fill(record.begin() + 4, record.begin() + 12, uint8_t{0});
    std::fill(record.begin() + 34, record.begin() + 40, uint8_t{0});
    EXPECT_EQ(record, hex("A55A 04 00 0000000000000000 1400 2900 00  01000000 18000000 1E00 00"
                          "02000100 0000 00000000 0000 01  03 01 01 05 0000 9600 FFFF FFFF FFFF FFFF FF"));
}

TEST(ScenarioDevices, OverlongFrameCostsNoneOfTheNextFrames) {
    using namespace frame_1743;
    Unit unit;
    unit.startAndWaitReady();
    Bytes burst(6002, 0x55);
    burst.front() = burst.back() = 0xC0;
    for (const uint8_t seconds : Bytes{11, 12, 13, 14}) {
        burst = burst + frame(payload({{90, {{1, 0x20, seconds}}}}));
    }
    unit.controller.sendTo(unit.framePort, burst);
    for (const char* const phase : {"2:5:110", "2:5:120", "2:5:130", "2:5:140"}) {
        EXPECT_EQ(recordOf(unit.receiveRecord(3000).value()), (std::vector<std::string>{"1", phase}));
    }
}

TEST(ScenarioDevices, RecordsContinueSoonAfterARestart) {
    constexpr int64_t FIRST_RECORD_MS = V2X_SANITIZED != 0 ? 10000 : 1000;
    Unit unit;
    unit.startDevice("learner", 50);
    for (int round = 0; round < 5; round++) {
        const auto start = std::chrono::steady_clock::now();
        unit.startAndWaitReady();
        EXPECT_TRUE(unit.receiveRecord().has_value());
        EXPECT_LE((std::chrono::steady_clock::now() - start) / std::chrono::milliseconds(1), FIRST_RECORD_MS);
        std::this_thread::sleep_for(std::chrono::milliseconds(137 * round)); // kill it at different points of its work
        unit.daemon->signal(SIGKILL);
        EXPECT_EQ(unit.daemon->wait(20000), 128 + SIGKILL);
        drain(unit.stack);
    }
}

TEST(ScenarioDevices, WallClockStepMovesTimesAndNoPeriod) {
    if (V2X_SANITIZED != 0) {
        GTEST_SKIP() << "libfaketime and the sanitizer both want to be loaded first";
    }
    Unit unit;
    const std::string clock = unit.folder.path() + "/clock";
    const auto step = [&](int64_t seconds) { // in one piece: the daemon reads the file at each look at the clock
        writeFile(clock + ".new", (seconds < 0 ? "" : "+") + std::to_string(seconds));
        std::filesystem::rename(clock + ".new", clock);
    };
    step(0);
    unit.startAndWaitReady({}, {"LD_PRELOAD=" V2X_FAKETIME, "FAKETIME_TIMESTAMP_FILE=" + clock, "FAKETIME_NO_CACHE=1",
                                "FAKETIME_DONT_FAKE_MONOTONIC=1"});
    for (const int64_t seconds : {int64_t{3600}, int64_t{-86400}, 10 - time(nullptr)}) {
        SCOPED_TRACE(seconds);
        step(seconds);
        drain(unit.learner);
        drain(unit.stack);
        std::this_thread::sleep_for(std::chrono::milliseconds(3000));
        EXPECT_NEAR(drain(unit.learner), 3, 1) << "heartbeats";
        EXPECT_GT(drain(unit.stack), 0) << "requests for SPAT";
        unit.learner.sendTo(unit.reportPort, EXAMPLE);
        EXPECT_LE(timeError(unit.receiveRecord().value(), time(nullptr) + seconds), 2000);
    }
}

// Each well-framed report, good frame and good document becomes one record; nothing else does.
TEST(ScenarioDevices, CountsOfAllSimulatorsAgree) {
    Unit unit;
    unit.corrections = "SpatDown = true;";
    unit.startAndWaitReady();
    unit.startStackSimulator({"--no-replies"});
    unit.startDevice("learner", 300, {"--count", "1000", "--damage", "0.2", "--seed", "7"});
    // Only damage that costs no neighbouring frame: exactly the good frames arrive.
    unit.startDevice("controller", 50,
                     {"--count", "300", "--damage", "0.2", "--damage-kinds", "crc,length,type,count", "--garbage",
                      "0.2", "--seed", "5"});
    unit.startCloudSimulator({"--rate", "50", "--count", "200", "--status", "none", "--phases", "12", "--bad-documents",
                              "0.2", "--bad-document-kinds", "syntax,empty,missing-key", "--seed", "7"});
    EXPECT_TRUE(eventually([&] { return occurrences(unit.simulatorOutput("cloud"), "\"summary\"") > 0; }, 60000));
    const std::string reports = unit.endSimulator("learner", 0);
    const std::string frames = unit.endSimulator("controller", 0);
    const std::string cloud = unit.endSimulator("cloud");
    const uint64_t framed = counted(reports, "good") + counted(reports, "countTooHigh");
    EXPECT_LT(framed, 1000U);
    EXPECT_LT(counted(frames, "good"), 300U);
    EXPECT_EQ(counted(cloud, "down"), 200U);
    EXPECT_GT(counted(cloud, "downBad"), 20U);

    std::this_thread::sleep_for(std::chrono::milliseconds(2000)); // the last frames wait up to half a second
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    EXPECT_EQ(unit.err(), "");
    const std::string received = unit.endSimulator("stack");
    const uint64_t records = framed + counted(frames, "good") + counted(cloud, "downGood");
    EXPECT_GT(records, 1000U);
    EXPECT_EQ(counted(received, "records"), records);
    EXPECT_EQ(counted(received, "refused"), 0U);
}

} // namespace
