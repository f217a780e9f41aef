// Start, stop, configuration errors and log of the real daemon, as the service manager sees them.
#include <csignal>
#include <fcntl.h>
#include <filesystem>
#include <fstream>
#include <gtest/gtest.h>
#include <set>
#include <sys/ptrace.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <thread>

#include "frame_1743.h"
#include "messages.h"
#include "unit.h"

namespace {

TEST(ScenarioStart, NotifiesServiceManagerAndWatchdog) {
    Unit unit;
    unit.startAndWaitReady({"-x"}, {"WATCHDOG_USEC=200000"});
    for (int i = 0; i < 3; i++) {
        EXPECT_EQ(unit.notify.receive(), "WATCHDOG=1");
    }
    // The main thread alone gets the stop signals.
    const uint64_t stopSignals = 1U << (SIGINT - 1) | 1U << (SIGQUIT - 1) | 1U << (SIGTERM - 1);
    const std::string pid = std::to_string(unit.daemon->pid());
    int others = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + pid + "/task")) {
        const std::string status = readFile(task.path().string() + "/status");
        if (status.empty()) {
            continue; // the thread has ended
        }
        const uint64_t blocked = std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
        const bool isMain = task.path().filename() == pid;
        others += isMain ? 0 : 1;
        EXPECT_EQ(blocked & stopSignals, isMain ? 0 : stopSignals) << status;
    }
    EXPECT_GE(others, 10);
    unit.daemon->signal(SIGINT);
    std::string state;
    while ((state = unit.notify.receive()) == "WATCHDOG=1") {
    }
    EXPECT_EQ(state, "STOPPING=1");
    EXPECT_EQ(unit.daemon->wait(20000), 0);
    EXPECT_EQ(unit.out(), "this param error\nCaught SIGINT (1)\n");
}

// Id of the process's thread with this name; 0 without one.
pid_t findThread(pid_t process, const std::string& name) {
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + std::to_string(process) + "/task")) {
        if (readFile(task.path().string() + "/comm") == name + "\n") {
            return std::stoi(task.path().filename());
        }
    }
    return 0;
}

TEST(ScenarioStart, WatchdogIsFedOnlyWhileEveryThreadMakesProgress) {
    Unit unit;
    const std::string control = unit.folder.path() + "/control";
    unit.moreGroups = "Control = { Path = \"" + control + "\"; };\n";
    unit.startAndWaitReady({}, {"WATCHDOG_USEC=200000"});
    Process client({V2X_BIN "/v2x_spat_ctl", "levels", "-s", control}, {}, control + ".out", control + ".err");
    ASSERT_EQ(client.wait(20000), 0) << readFile(control + ".err");
    const pid_t thread = findThread(unit.daemon->pid(), "Deal_SPAT_Data");
    ASSERT_NE(thread, 0);
    if (ptrace(PTRACE_SEIZE, thread, nullptr, nullptr) != 0) {
        GTEST_SKIP() << "not tested: ptrace: " << strerror(errno);
    }
    const auto start = std::chrono::steady_clock::now();
    ASSERT_EQ(ptrace(PTRACE_INTERRUPT, thread, nullptr, nullptr), 0);
    ASSERT_EQ(waitpid(thread, nullptr, __WALL), thread);
    while (unit.notify.receive(5000) == "WATCHDOG=1") {
        ASSERT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(30));
    }
    EXPECT_GE(std::chrono::steady_clock::now() - start, std::chrono::seconds(10));
    ASSERT_EQ(ptrace(PTRACE_DETACH, thread, nullptr, nullptr), 0);
    EXPECT_EQ(unit.notify.receive(), "WATCHDOG=1");
    EXPECT_TRUE(eventually([&] { return occurrences(unit.log(), "thread Deal_SPAT_Data makes progress again") == 1; }));
    EXPECT_EQ(occurrences(unit.log(), "thread Deal_SPAT_Data has made no progress for 10 s"), 1U);
    EXPECT_EQ(occurrences(unit.log(), "has made no progress"), 1U) << "the other threads are idle";
}

TEST(ScenarioStart, ReportsChangedStatusAndSurvivesHangupAndAFullNotifySocket) {
    Unit unit;
    unit.startAndWaitReady({}, {"WATCHDOG_USEC=20000000"});
    unit.startStackSimulator(); // it answers after the first record
    unit.startDevice("learner", 10, {"--count", "1"});
    std::string status;
    while (!(status = unit.notify.receiveStatus()).empty() && occurrences(status, "stack answers") == 0) {
    }
    EXPECT_EQ(occurrences(status, "cloud unavailable"), 1U) << status;
    EXPECT_EQ(unit.notify.receiveStatus(2500), "") << "nothing has changed";
    unit.daemon->signal(SIGHUP);
    EXPECT_TRUE(eventually([&] { return occurrences(unit.log(), "SIGHUP ignored, restart the daemon") == 1; }));
    unit.notify.fill();
    unit.endSimulator("stack");
    std::this_thread::sleep_for(std::chrono::milliseconds(3500)); // the stack application is silent
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.daemon->wait(5000), 0);
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
    Unit unit;
    const std::string file = unit.folder.path() + "/conf/v2x_ipc.cfg";
    unit.cfg = "rsuSpatConfigInfo = { Sysinfoname = \"" + file + "\"; };";
    unit.start();
    EXPECT_EQ(unit.daemon->wait(20000), 78);
    EXPECT_EQ(unit.err(), "v2x_spat_convert: " + file + ": device_id: missing, empty or longer than 31 characters\n");
    EXPECT_EQ(unit.notify.receive(0), "STOPPING=1") << "and never READY=1";
}

// The paths without DDS that work within 1.5 s.
std::set<std::string> workingPaths(Unit& unit) {
    using namespace frame_1743;
    UdpPeer tool;
    unit.learner.sendTo(unit.reportPort, hex("FEFE10 000A 000100 03010F00000000"));
    unit.controller.sendTo(unit.framePort, frame(payload({{90, {{1, 0x20, 9}}}})));
    tool.sendTo(unit.logToolPort, LOG_REQUEST);
    std::this_thread::sleep_for(std::chrono::milliseconds(1500));
    std::set<std::string> paths;
    while (const std::optional<Bytes> bytes = unit.stack.receive(0)) {
        paths.insert(bytes->size() <= 41 ? "request" : bytes->at(41) == 3 ? "report" : "frame");
    }
    if (drain(tool) > 0) {
        paths.insert("tool");
    }
    if (drain(unit.learner) > 0) {
        paths.insert("heartbeat");
    }
    return paths;
}

TEST(ScenarioStart, PortInUseTurnsOffItsPath) {
    const struct {
        const char* socket;
        uint16_t Unit::*port;
        std::set<std::string> working;
    } cases[] = {
        {"QUOR_RECV_SG", &Unit::reportPort, {"frame", "request", "tool"}},
        {"1743_RECV_SG", &Unit::framePort, {"report", "request", "tool", "heartbeat"}},
        {"SPAT_C_LOGTOOL", &Unit::logToolPort, {"report", "frame", "request", "heartbeat"}},
        {"GET_SPAT_DATA", &Unit::requestPort, {"report", "frame", "heartbeat"}},
        {"SPAT_SEND_APP", &Unit::recordPort, {"heartbeat"}}, // later sockets to the stack application stay closed
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.socket);
        Unit unit;
        for (UdpPeer& own : unit.held) {
            own.release();
        }
        const UdpPeer other(unit.*row.port);
        unit.startAndWaitReady();
        EXPECT_EQ(workingPaths(unit), row.working);
        const std::string line =
            std::string(row.socket) + " at 0.0.0.0:" + std::to_string(other.port()) + ": Address already in use";
        EXPECT_NE(unit.log().find("socket " + line), std::string::npos) << line;
    }
}

TEST(ScenarioLog, RotatesAndSurvivesFullDiskWithoutLosingRecords) {
    constexpr const char* MOUNT = "mount -t tmpfs -o size=12m v2x_test \"$0\" && "
                                  "head -c 10450000 /dev/zero > \"$0/spat_conv.log\" && exec \"$@\"";
    Unit unit;
    const std::string folder = unit.folder.path() + "/log";
    std::filesystem::create_directory(folder);
    unit.launcher = {"/usr/bin/unshare", geteuid() == 0 ? "-m" : "-rm", "/bin/sh", "-c", MOUNT, folder};
    unit.start({"-d", "7"});
    if (unit.daemon->wait(500) == 1) {
        GTEST_SKIP() << unit.err(); // no mount of one's own
    }
    ASSERT_EQ(unit.notify.receive(), "READY=1") << unit.err();
    const std::string seenFromHere = "/proc/" + std::to_string(unit.daemon->pid()) + "/root" + folder;
    const auto logSize = [&] { return std::filesystem::file_size(seenFromHere + "/spat_conv.log"); };
    unit.startStackSimulator({"--no-replies"});
    unit.startDevice("learner", 50);
    EXPECT_TRUE(eventually([&] { return std::filesystem::exists(seenFromHere + "/spat_conv.1.log"); }));

    const std::string filler = seenFromHere + "/filler";
    std::ofstream(filler) << std::string(12 << 20, 'x'); // until the disk is full
    EXPECT_TRUE(eventually([&] { return unit.err().find("No space left on device") != std::string::npos; }));
    const auto sizeWhenFull = logSize();
    std::filesystem::remove(filler);
    EXPECT_TRUE(eventually([&] { return logSize() > sizeWhenFull + 4096; }, 5000));

    const std::string sent = unit.endSimulator("learner");
    std::this_thread::sleep_for(std::chrono::milliseconds(500));
    EXPECT_EQ(counted(unit.endSimulator("stack"), "records"), counted(sent, "sent"));
    unit.daemon->signal(SIGTERM);
    EXPECT_EQ(unit.daemon->wait(20000), 0);
}

} // namespace
