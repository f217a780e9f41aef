// A learner's reports on their way through the real daemon to the stack application.
#include <csignal>
#include <ctime>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "frame_1743.h"
#include "unit.h"

namespace {

using testing::HasSubstr;
using testing::Not;

uint64_t number(const Bytes& bytes, size_t at, size_t size) {
    uint64_t value = 0;
    for (size_t i = 0; i < size; i++) {
        value |= static_cast<uint64_t>(bytes.at(at + i)) << (8 * i);
    }
    return value;
}

const char PHASE_3_GREEN_15_S[] = "FEFE10 000A 000100 03010F00000000";

TEST(Scenario, TheExampleReportArrivesByteForByte) {
    Unit unit;
    unit.startAndWaitReady();
    const uint64_t before = static_cast<uint64_t>(time(nullptr));
    unit.learner.sendTo(unit.reportPort, hex(PHASE_3_GREEN_15_S));
    Bytes frame = unit.stack.receive().value();
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
}

TEST(Scenario, ReportsArriveAsRecordsAndOthersDoNot) {
    Unit unit;
    unit.phases = "PhaseID3 = 7;";
    unit.startAndWaitReady();
    std::string thirtyThree = "FEFE10 00EA 002100";
    for (int i = 0; i < 32; i++) {
        thirtyThree += "09010F00000000";
    }
    const struct {
        const char* what;
        std::string report;
        std::vector<std::string> record; // empty = refused
    } cases[] = {
        {"SPAT phase 3 shows device phase 7, phase 7 too",
         "FEFE10 0018 000300 03010100000000 07020200000000 01030300000000",
         {"3", "1:7:30", "3:3:20", "7:3:20"}},
        {"wrong type", "FEFE11 000A 000100 01010F00000000", {}},
        {"the last of two equal phases", "FEFE10 0011 000200 05010F00000000 05021000000000", {"2", "5:3:160"}},
        {"the 33rd phase", thirtyThree + "01010F00000000", {"33", "9:5:150"}},
        {"seconds unknown", "FEFE10 000A 000100 0201FF00000000", {"1", "2:0:36001"}},
        {"wrong length", "FEFE10 000B 000100 0201FF00000000", {}},
        {"short", "FEFE", {}},
        {"no phases", "FEFE10 0003 000000", {"0"}},
        {"127 phases counted, one held", "FEFE10 000A 007F00 02010F00000000", {"127", "2:5:150"}},
        {"200 phases", "FEFE10 000A 00C800 02010F00000000", {"-56"}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        unit.learner.sendTo(unit.reportPort, hex(row.report));
        if (!row.record.empty()) {
            EXPECT_EQ(recordOf(unit.stack.receive().value()), row.record);
        }
    }
    EXPECT_FALSE(unit.stack.receive(0).has_value());
    EXPECT_THAT(unit.log(), HasSubstr(" E QUOR "));
    EXPECT_THAT(unit.log(), HasSubstr("Invalid LearnMachine Data"));
    EXPECT_THAT(unit.log(), HasSubstr("Invalid Length, [recv len:15] , [calc len:16]"));
}

TEST(Scenario, ARegionThatDoesNotFitTheMessageSetSendsNothing) {
    Unit unit;
    unit.identity = "nodeId = 2; regionId = 70000;";
    unit.startAndWaitReady();
    unit.learner.sendTo(unit.reportPort, hex(PHASE_3_GREEN_15_S));
    ASSERT_TRUE(eventually([&] { return unit.log().find("LearnMachineToIpcSpat error") != std::string::npos; }));
    EXPECT_THAT(unit.log(), HasSubstr("asn param error"));
    EXPECT_FALSE(unit.stack.receive(0).has_value());
}

TEST(Scenario, TheLearnerGetsItsHeartbeatAndItsSilenceIsNoticed) {
    Unit unit;
    unit.startAndWaitReady({"-d", "5"});
    for (int beat = 0; beat < 3; beat++) {
        EXPECT_EQ(unit.learner.receive().value(), hex("FEFE03 0006 01 00000000 55"));
    }
    unit.learner.sendTo(unit.reportPort, hex(PHASE_3_GREEN_15_S));
    ASSERT_TRUE(unit.stack.receive().has_value());
    EXPECT_TRUE(eventually([&] { return unit.log().find("Signal learn machine is working") != std::string::npos; }));
    EXPECT_TRUE(eventually(
        [&] {
            const std::string log = unit.log();
            return log.rfind("works abnormally") != std::string::npos &&
                   log.rfind("works abnormally") > log.rfind("is working");
        },
        40000));
}

TEST(Scenario, AStopRequestUnderFullLoadEndsCleanly) {
    const char* wanted = getenv("V2X_STOP_ROUNDS");
    const int rounds = wanted != nullptr ? atoi(wanted) : 20;
    const Bytes frame = frame_1743::frame(frame_1743::payload({{0, {{1, 0x20, 25}}}}));
    std::chrono::milliseconds longest(0);
    for (int round = 0; round < rounds; round++) {
        Unit unit;
        unit.startAndWaitReady({"-d", round % 2 == 0 ? "4" : "7"});
        std::atomic<bool> flood{true};
        std::thread sender([&] {
            while (flood) {
                unit.learner.sendTo(unit.reportPort, hex(PHASE_3_GREEN_15_S));
                unit.learner.sendTo(unit.reportPort, hex("FEFE11"));
                unit.controller.sendTo(unit.framePort, frame);
            }
        });
        EXPECT_TRUE(unit.stack.receive().has_value());
        const auto asked = std::chrono::steady_clock::now();
        unit.daemon->signal(SIGTERM);
        const int status = unit.daemon->wait(30000);
        longest = std::max(
            longest, std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now() - asked));
        flood = false;
        sender.join();
        ASSERT_EQ(status, 0) << "round " << round << "\n" << unit.err();
        ASSERT_EQ(unit.err(), "");
        ASSERT_EQ(unit.out(), "Caught SIGTERM (1)\n");
    }
    printf("%d stops, the longest took %ld ms\n", rounds, static_cast<long>(longest.count()));
}

// Both simulators around the daemon: every report that is framed well arrives as one record, and nothing else does.
TEST(Scenario, TheSimulatorsCountsAgree) {
    Unit unit;
    unit.startAndWaitReady();
    unit.startStackSimulator();
    unit.learner.release();
    const std::string sent = unit.simulate("learner", {"--target", addressOf(unit.reportPort), "--listen",
                                                       std::to_string(unit.learner.port()), "--rate", "400", "--count",
                                                       "1000", "--damage", "0.2", "--seed", "7"});
    const uint64_t framed = counted(sent, "good") + counted(sent, "countTooHigh");
    EXPECT_EQ(counted(sent, "sent"), 1000U);
    EXPECT_GT(framed, 700U);
    EXPECT_LT(framed, 1000U);
    EXPECT_GE(counted(sent, "heartbeats"), 1U);

    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    const std::string received = unit.endStackSimulator();
    EXPECT_EQ(counted(received, "records"), framed);
    EXPECT_EQ(counted(received, "refused"), 0U);
}

} // namespace
