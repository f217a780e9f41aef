// Start, stop and configuration errors of the real daemon, as the service manager sees them.
#include <csignal>
#include <deque>
#include <fcntl.h>
#include <filesystem>
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <thread>

#include "frame_1743.h"
#include "messages.h"
#include "unit.h"

namespace {

void expectMainThreadAloneGetsStopSignals(pid_t pid) {
    const uint64_t stopSignals = 1U << (SIGINT - 1) | 1U << (SIGQUIT - 1) | 1U << (SIGTERM - 1);
    int others = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/task")) {
        const std::string status = readFile(task.path().string() + "/status");
        if (status.empty()) {
            continue; // the thread has ended
        }
        const uint64_t blocked = std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
        const bool isMain = task.path().filename() == std::to_string(pid);
        others += isMain ? 0 : 1;
        EXPECT_EQ(blocked & stopSignals, isMain ? 0 : stopSignals) << status;
    }
    EXPECT_GE(others, 10);
}

TEST(ScenarioStart, NotifiesServiceManagerAndWatchdog) {
    Unit unit;
    unit.startAndWaitReady({"-x"}, {"WATCHDOG_USEC=200000"});
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(unit.notify.receive(), "WATCHDOG=1");
    }
    expectMainThreadAloneGetsStopSignals(unit.daemon->pid());
    unit.daemon->signal(SIGINT);
    std::string state;
    while ((state = unit.notify.receive()) == "WATCHDOG=1") {
    }
    EXPECT_EQ(state, "STOPPING=1");
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    EXPECT_EQ(unit.out(), "this param error\nCaught SIGINT (1)\n");
}

TEST(ScenarioStart, StopsWhileNobodyReadsItsStandardOutput) {
    Unit unit;
    const std::string path = unit.folder.path() + "/out";
    ASSERT_EQ(mkfifo(path.c_str(), 0600), 0);
    const int pipe = open(path.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC);
    while (write(pipe, "x", 1) == 1) {
    }
    unit.startAndWaitReady({"-x"});
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.daemon->wait(5000), 0);
    close(pipe);
}

TEST(ScenarioStart, EndsWithOneLineForAnInvalidConfiguration) {
    const struct {
        std::string workDir; // below the unit's own
        std::string cfg;     // @ stands for the unit's work directory
        std::string line;    // on standard error
    } cases[] = {
        {"/nowhere", "", "@/nowhere/conf/v2x_spat_convert.cfg: No such file or directory\n"},
        {"", "rsuSpatConfigInfo = {\n  nodeId = ;\n};", "@/conf/v2x_spat_convert.cfg:2: syntax error\n"},
        {"", "rsuSpatConfigInfo = {\n Sysinfoname = 5;\n};",
         "@/conf/v2x_spat_convert.cfg:2: rsuSpatConfigInfo.Sysinfoname: expected a string, found an integer\n"},
        {"", "rsuSpatConfigInfo = { Sysinfoname = \"@/conf/v2x_ipc.cfg\"; };",
         "@/conf/v2x_ipc.cfg: device_id: missing, empty or longer than 31 characters\n"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.line);
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

// The paths without DDS that work within 1.5 s.
std::string workingPaths(Unit& unit) {
    using namespace frame_1743;
    UdpPeer tool;
    unit.learner.sendTo(unit.reportPort, hex("FEFE10 000A 000100 03010F00000000"));
    unit.controller.sendTo(unit.framePort, frame(payload({{90, {{1, 0x20, 9}}}})));
    tool.sendTo(unit.logToolPort, LOG_REQUEST);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    bool report = false;
    bool ofFrame = false;
    bool request = false;
    while (const std::optional<Bytes> bytes = unit.stack.receive(0)) {
        const bool isRecord = bytes->size() > 41;
        report = report || (isRecord && bytes->at(41) == 3);
        ofFrame = ofFrame || (isRecord && bytes->at(41) == 2);
        request = request || !isRecord;
    }
    return std::string(report ? "report " : "") + (ofFrame ? "frame " : "") + (request ? "request " : "") +
           (tool.receive(0).has_value() ? "tool " : "") + (unit.learner.receive(0).has_value() ? "heartbeat" : "");
}

TEST(ScenarioStart, PortInUseTurnsOffItsPath) {
    constexpr uint16_t DDS = 7400 + 250 * 200 + 10; // of domain 200: two ports for each of 32 participants
    const struct {
        const char* socket; // nullptr: all DDS ports
        uint16_t Unit::*port;
        const char* working;
    } cases[] = {
        {"QUOR_RECV_SG", &Unit::reportPort, "frame request tool "},
        {"1743_RECV_SG", &Unit::framePort, "report request tool heartbeat"},
        {"SPAT_C_LOGTOOL", &Unit::logToolPort, "report frame request heartbeat"},
        {"GET_SPAT_DATA", &Unit::requestPort, "report frame heartbeat"},
        {"SPAT_SEND_APP", &Unit::recordPort, "heartbeat"}, // later sockets to the stack application stay closed
        {nullptr, nullptr, "report frame request tool heartbeat"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.working);
        Unit unit;
        for (UdpPeer& own : unit.held) {
            own.release();
        }
        std::deque<UdpPeer> others;
        for (uint16_t i = 0; i < (row.socket == nullptr ? 64 : 1); i++) { // or another program has a DDS port
            others.emplace_back(row.socket == nullptr ? static_cast<uint16_t>(DDS + i) : unit.*row.port);
        }
        unit.startAndWaitReady();
        EXPECT_EQ(workingPaths(unit), row.working);
        const std::string line = row.socket == nullptr ? "cannot join domain 200"
                                                       : "socket " + std::string(row.socket) +
                                                             " at 0.0.0.0:" + std::to_string(others[0].port()) +
                                                             ": Address already in use";
        EXPECT_NE(unit.log().find(line), std::string::npos) << line;
    }
}

} // namespace
