// The guard with the real daemon: refused senders, stale sources, the choice between two sources.
#include <csignal>
#include <gtest/gtest.h>
#include <thread>

#include "frame_1743.h"
#include "messages.h"
#include "unit.h"

namespace {

using namespace std::chrono_literals;

const Bytes GREEN_15_S = hex("FEFE10 000A 000100 03010F00000000");                    // the learner's phase 3
const Bytes RED_9_S = frame_1743::frame(frame_1743::payload({{90, {{1, 0x02, 9}}}})); // the controller's phase 2

using Record = std::vector<std::string>; // as recordOf

// The next records within `milliseconds`.
std::vector<Record> recordsWithin(Unit& unit, int milliseconds) {
    std::vector<Record> records;
    const auto end = std::chrono::steady_clock::now() + std::chrono::milliseconds(milliseconds);
    while (std::chrono::steady_clock::now() < end) {
        if (const auto record = unit.receiveRecord(20)) {
            records.push_back(recordOf(*record));
        }
    }
    return records;
}

void stop(Unit& unit) {
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    EXPECT_EQ(unit.err(), "");
}

TEST(ScenarioGuard, OtherSendersAreRefusedAndCounted) {
    Unit unit;
    unit.ipcKeys = "local_ip = \"127.0.0.1\";";
    unit.learnerKeys += "OnlyFrom = \"127.0.0.1\"; LocalIp = \"127.0.0.1\";";
    unit.controllerKeys += "OnlyFrom = [ \"10.0.0.0/8\", \"127.0.0.1/32\" ];";
    unit.startAndWaitReady();
    const UdpPeer forger(0, INADDR_LOOPBACK + 1); // 127.0.0.2
    const Bytes reply = replyWith(hex("00"));
    for (int i = 0; i < 3; i++) {
        forger.sendTo(unit.reportPort, GREEN_15_S);
        forger.sendTo(unit.framePort, RED_9_S);
        forger.sendTo(unit.logToolPort, LOG_REQUEST);
        forger.sendTo(unit.requestPort, reply);
    }
    EXPECT_EQ(recordsWithin(unit, 1000), std::vector<Record>{});
    unit.learner.sendTo(unit.reportPort, GREEN_15_S);
    EXPECT_EQ(recordOf(unit.receiveRecord().value()), (Record{"1", "3:5:150"}));
    unit.controller.sendTo(unit.framePort, RED_9_S);
    EXPECT_EQ(recordOf(unit.receiveRecord().value()), (Record{"1", "2:3:90"}));
    UdpPeer tool;
    tool.sendTo(unit.logToolPort, LOG_REQUEST);
    EXPECT_TRUE(tool.receive(5000).has_value());
    unit.stack.sendTo(unit.requestPort, reply); // a late reply of the real host
    EXPECT_TRUE(eventually([&] {
        return occurrences(unit.log(), "1743: datagram from 127.0.0.2 refused, not in OnlyFrom (1 so far)") == 1;
    }));
    std::this_thread::sleep_for(1s); // the request task reads its socket every 600 ms
    stop(unit);
    const std::string log = unit.log();
    for (const char* const line : {"learner: datagram from 127.0.0.2 refused, not in OnlyFrom (1 so far)",
                                   "log tool: datagram from 127.0.0.2 refused, not in ipc.local_ip (1 so far)",
                                   "stack: datagram from 127.0.0.2 refused, not in ipc.hosts.RSU_RCV (1 so far)"}) {
        EXPECT_EQ(occurrences(log, line), 1U) << line << log;
    }
    EXPECT_EQ(occurrences(log, "refused, not in"), 4U) << "one line a minute and socket";
    EXPECT_EQ(occurrences(log, "refused_sender 3"), 4U) << log;
}

// The unavailable record of RED_9_S and GREEN_15_S, byte for byte but for its times.
void expectUnavailable(Bytes record, const char* phase) {
    ASSERT_EQ(record.size(), 58U);
    std::fill(record.begin() + 4, record.begin() + 12, uint8_t{0});
    std::fill(record.begin() + 34, record.begin() + 40, uint8_t{0});
    EXPECT_EQ(record, hex(std::string("A55A 04 00 0000000000000000 1400 2900 00  01000000 18000000 1E00 00"
                                      "02000100 0000 00000000 0000 01 ") +
                          phase + " 01 01 00 0000 A18C FFFF FFFF FFFF FFFF FF"));
}

TEST(ScenarioGuard, StaleSourceBecomesUnavailableUntilItIsFreshAgain) {
    for (const bool isLearner : {true, false}) {
        SCOPED_TRACE(isLearner ? "learner" : "1743");
        Unit unit;
        unit.moreGroups = "Guard = { OnStale = \"unavailable\"; };\n";
        (isLearner ? unit.learnerKeys : unit.controllerKeys) += "StaleAfter = 1;";
        (isLearner ? unit.controllerKeys : unit.learnerKeys) = "IsEnable = false;";
        unit.startAndWaitReady();
        const auto send = [&] {
            isLearner ? unit.learner.sendTo(unit.reportPort, GREEN_15_S)
                      : unit.controller.sendTo(unit.framePort, RED_9_S);
        };
        send();
        EXPECT_EQ(recordOf(unit.receiveRecord(3000).value()).at(1), isLearner ? "3:5:150" : "2:3:90");
        const auto sent = std::chrono::steady_clock::now();
        for (int i = 0; i < 2; i++) {
            expectUnavailable(unit.receiveRecord(4000).value(), isLearner ? "03" : "02");
        }
        const double elapsed = std::chrono::duration<double>(std::chrono::steady_clock::now() - sent).count();
        EXPECT_NEAR(elapsed, 2.1, 0.6) << "after 1 s, and a second later";
        for (int i = 0; i < 3; i++) {
            send();
            std::this_thread::sleep_for(550ms);
        }
        const std::vector<Record> records = recordsWithin(unit, 100);
        EXPECT_EQ(records.back().at(1), isLearner ? "3:5:150" : "2:3:90");
        EXPECT_EQ(std::count(records.begin(), records.end(), records.back()), 1) << "the first two are withheld";
        stop(unit);
        expectUnavailable(unit.receiveRecord(1000).value(), isLearner ? "03" : "02");
        const std::string name = isLearner ? "learner 127.0.0.1" : "1743 127.0.0.1";
        EXPECT_EQ(occurrences(unit.log(), name + ": stale, no report for 1."), 1U) << unit.log();
        EXPECT_EQ(occurrences(unit.log(), " (1 accepted before)"), 1U);
        EXPECT_EQ(occurrences(unit.log(), name + ": fresh again after "), 1U);
        EXPECT_EQ(occurrences(unit.log(), "not_fresh 2"), 1U);
    }
}

TEST(ScenarioGuard, ForwardsTheFirstFreshSourceThroughItsOwnPhaseTable) {
    Unit unit;
    unit.moreGroups = "Guard = { SourcePriority = [ \"learner\", \"1743\" ]; };\n";
    unit.learnerKeys += "StaleAfter = 1; PhaseRelationship = { PhaseID7 = 3; };";
    unit.controllerKeys += "StaleAfter = 3; PhaseRelationship = { PhaseID9 = 2; };";
    unit.startAndWaitReady();
    const auto run = [&](bool withReports, int steps) {
        for (int i = 0; i < steps; i++) {
            if (withReports) {
                unit.learner.sendTo(unit.reportPort, GREEN_15_S);
            }
            unit.controller.sendTo(unit.framePort, RED_9_S);
            std::this_thread::sleep_for(300ms);
        }
        return recordsWithin(unit, 700);
    };
    // The record's phase count stays as reported: only its first entry is sent.
    const auto first = [](std::vector<Record> records) {
        std::string order;
        for (const Record& record : records) {
            order += record.at(1)[0];
        }
        return order;
    };
    EXPECT_EQ(first(run(true, 3)), "333");
    const std::string gap = first(run(false, 6));
    EXPECT_EQ(gap.find_first_not_of('2'), std::string::npos) << gap;
    EXPECT_GE(gap.size(), 2U);
    const std::string back = first(run(true, 5));
    EXPECT_EQ(back.substr(back.find('3')), std::string(back.size() - back.find('3'), '3'))
        << "no alternation: " << back;
    EXPECT_EQ(std::count(back.begin(), back.end(), '3'), 3) << back;
    stop(unit);
    EXPECT_EQ(occurrences(unit.log(), "counters learner: not_fresh 2, forwarded 6, accepted 8"), 1U) << unit.log();
}

} // namespace
