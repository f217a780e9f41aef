// The DDS library between processes: peers that die, stop, come late or are foreign; sockets, files, signals, exit.
#include <gmock/gmock.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <filesystem>
#include <iterator>
#include <sstream>
#include <sys/stat.h>
#include <thread>

#include "counts.h"
#include "dds/dds_test.h"
#include "dds/foreign.h"
#include "v2x/v2xlog.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using Bytes = std::vector<uint8_t>;
using Clock = std::chrono::steady_clock;

const std::string REAL_TIME = "2";
const std::string ALL = "0";

int64_t since(Clock::time_point start) {
    return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count();
}

TEST(Peers, EchoEveryPieceInOrder) {
    const std::vector<size_t> sizes = {1, 1023, 1024, 1025, 2048, 20479};
    Participant here;
    here.writes("there");
    here.reads("back", Inbox::take<>);
    here.start();
    Peer peer("dds_peer", {REAL_TIME, "echo", "there", "back"});
    ASSERT_TRUE(here.awaits("there", 1));
    const auto expected = piecesOfSizes(sizes);
    ASSERT_EQ(here.send("there", payload(sizes[0], 0)), 0);
    ASSERT_TRUE(Inbox::of().holds(1)); // its answers reach us: both directions are up
    for (size_t i = 1; i < sizes.size(); i++) {
        ASSERT_EQ(here.send("there", payload(sizes[i], static_cast<uint8_t>(i))), 0);
    }
    EXPECT_TRUE(Inbox::of().holds(expected.size()));
    EXPECT_THAT(Inbox::of().all(), ElementsAreArray(expected));
    EXPECT_THAT(peer.lines(), ElementsAreArray(expected));
}

// Sanitizers keep what is freed.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr bool IS_SANITIZED = true;
#else
constexpr bool IS_SANITIZED = false;
#endif

size_t residentKib(pid_t pid) {
    std::ifstream status("/proc/" + std::to_string(pid) + "/status");
    for (std::string word; status >> word;) {
        if (word == "VmRSS:") {
            size_t kib = 0;
            status >> kib;
            return kib;
        }
    }
    return 0;
}

TEST(Peers, StoppedReaderDelaysNoSenderAndCostsNoMemory) {
    Participant here;
    const struct {
        const char* topic;
        dds_historySetting setting;
    } topics[] = {{"all", DDS_HISTORY_ALL}, {"last", DDS_HISTORY_LAST}, {"now", DDS_HISTORY_REAL_TIME}};
    for (const auto& row : topics) {
        here.writes(row.topic, row.setting);
    }
    here.start();
    Peer all("dds_peer", {"0", "read", "all"});
    Peer last("dds_peer", {"1", "read", "last"});
    Peer now("dds_peer", {"2", "read", "now"});
    for (const auto& row : topics) {
        ASSERT_TRUE(here.awaits(row.topic, 1));
    }
    for (Peer* peer : {&all, &last, &now}) {
        peer->process().signal(SIGSTOP);
    }
    // "All" keeps 4096 samples for a reader that is still matched, and then takes none.
    for (int i = 0; i < 4; i++) {
        ASSERT_EQ(here.send("all", payload(1048576, 1)), 0);
    }
    const size_t residentBefore = residentKib(getpid());
    const Bytes bytes = payload(2048, 1);
    std::chrono::nanoseconds longest{0};
    int refused = 0;
    const auto start = Clock::now();
    while (since(start) < 2000 && get_match_cnt(here.handle(), "all") == 1) {
        for (const auto& row : topics) {
            const auto before = Clock::now();
            const int32_t result = here.send(row.topic, bytes);
            longest = std::max<std::chrono::nanoseconds>(longest, Clock::now() - before);
            // A reader that is not matched any more, its lease over, is not waited for.
            const bool isFull = row.setting == DDS_HISTORY_ALL && get_match_cnt(here.handle(), "all") == 1;
            ASSERT_TRUE(result == 0 || row.setting == DDS_HISTORY_ALL) << row.topic;
            ASSERT_TRUE(result == -2 || !isFull) << row.topic;
            refused += result != 0 ? 1 : 0;
        }
    }
    std::printf("longest send %.3f ms, refused %d, resident %zu kB\n", static_cast<double>(longest.count()) / 1e6,
                refused, residentKib(getpid()));
    EXPECT_LT(longest, std::chrono::seconds(1)); // no wait for a reader: those would last as long as it stands still
    if (!IS_SANITIZED) {
        EXPECT_LT(residentKib(getpid()), residentBefore + 2048);
    }
    EXPECT_GT(refused, 0);
    // Its lease over, the reader counts no more, and "all" goes on.
    EXPECT_TRUE(here.awaits("all", 0));
    EXPECT_EQ(here.send("all", bytes), 0);
    // What goes on running finds its way back.
    now.process().signal(SIGCONT);
    const size_t before = now.lines().size();
    EXPECT_TRUE(eventually([&] {
        here.send("now", Bytes(1));
        return now.lines().size() > before && now.lines().back() == describe("", 1);
    }));
}

TEST(Peers, ShortlyStoppedReaderLosesNothingThatIsKept) {
    Participant here;
    here.writes("all", DDS_HISTORY_ALL);
    here.start();
    Peer peer("dds_peer", {ALL, "read", "all"});
    ASSERT_TRUE(here.awaits("all", 1));
    peer.process().signal(SIGSTOP);
    std::vector<std::string> expected;
    for (uint8_t seed = 0; seed < 200; seed++) {
        const Bytes bytes = payload(10240, seed);
        const auto pieces = piecesOf(bytes);
        expected.insert(expected.end(), pieces.begin(), pieces.end());
        ASSERT_EQ(here.send("all", bytes), 0);
    }
    peer.process().signal(SIGCONT);
    EXPECT_TRUE(peer.printed(expected.size()));
    EXPECT_THAT(peer.lines(), ElementsAreArray(expected));
}

TEST(Peers, TwentyTakePartInOneDomain) {
    Participant here;
    here.writes("down");
    here.reads("up", Inbox::take<>);
    here.start();
    std::vector<std::unique_ptr<Peer>> peers;
    for (int i = 0; i < 19; i++) {
        peers.push_back(std::make_unique<Peer>("dds_peer", std::vector<std::string>{REAL_TIME, "echo", "down", "up"}));
    }
    ASSERT_TRUE(here.awaits("down", 19));
    // An answer that is sent before its writer knows our reader is gone; so ask until all have answered.
    uint8_t seed = 0;
    EXPECT_TRUE(eventually([&] {
        const auto pieces = piecesOf(payload(1500, ++seed));
        here.send("down", payload(1500, seed));
        return eventually(
            [&] {
                const auto all = Inbox::of().all();
                return std::count(all.begin(), all.end(), pieces[0]) == 19 &&
                       std::count(all.begin(), all.end(), pieces[1]) == 19;
            },
            500);
    }));
}

// Lines of /proc/net/NAME that are sockets of this process: local addresses as the kernel prints them.
std::vector<std::string> ownSockets(pid_t pid, const std::string& name) {
    std::vector<std::string> inodes;
    for (const auto& entry : std::filesystem::directory_iterator("/proc/" + std::to_string(pid) + "/fd")) {
        std::error_code error;
        const std::string target = std::filesystem::read_symlink(entry.path(), error).string();
        if (target.starts_with("socket:[")) {
            inodes.push_back(target.substr(8, target.size() - 9));
        }
    }
    std::vector<std::string> addresses;
    std::ifstream table("/proc/" + std::to_string(pid) + "/net/" + name);
    std::string line;
    for (std::getline(table, line); std::getline(table, line);) {
        std::istringstream words(line);
        const std::vector<std::string> fields{std::istream_iterator<std::string>(words), {}};
        if (fields.size() > 9 && std::find(inodes.begin(), inodes.end(), fields[9]) != inodes.end()) {
            addresses.push_back(fields[1]);
        }
    }
    return addresses;
}

TEST(Process, HasSocketsOnLoopbackAloneAndNoSharedMemory) {
    Peer peer("dds_peer", {REAL_TIME, "echo", "there", "back"}); // before this process has sockets to pass on
    Participant here;
    here.writes("there");
    here.start();
    ASSERT_TRUE(here.awaits("there", 1));
    ASSERT_EQ(here.send("there", Bytes(3000)), 0);
    ASSERT_TRUE(peer.printed(3));
    const pid_t pid = peer.process().pid();
    const auto udp = ownSockets(pid, "udp");
    EXPECT_EQ(udp.size(), 3U); // discovery, samples, one for sending
    const int firstPort = 7400 + 250 * testDomain() + 10;
    int wellKnown = 0;
    for (const std::string& address : udp) {
        EXPECT_EQ(address.substr(0, 9), "0100007F:");
        const int port = std::stoi(address.substr(9), nullptr, 16);
        wellKnown += port >= firstPort && port < firstPort + 2 * 32 ? 1 : 0;
    }
    EXPECT_EQ(wellKnown, 2);
    for (const char* table : {"udp6", "tcp", "tcp6", "raw"}) {
        EXPECT_THAT(ownSockets(pid, table), ElementsAre()) << table;
    }
    EXPECT_THAT(readFile("/proc/" + std::to_string(pid) + "/maps"), testing::Not(HasSubstr("/dev/shm")));
    // 239.255.0.1, where discovery by multicast listens; as the kernel prints it
    EXPECT_THAT(readFile("/proc/net/igmp"), testing::Not(HasSubstr("0100FFEF")));
}

TEST(Process, LeavesSignalsToTheMainThreadAndStandardOutputAlone) {
    Peer peer("dds_peer", {REAL_TIME, "echo", "there", "back"});
    Participant here;
    here.writes("there");
    here.start();
    ASSERT_TRUE(here.awaits("there", 1));
    const uint64_t stopSignals = 1U << (SIGINT - 1) | 1U << (SIGQUIT - 1) | 1U << (SIGTERM - 1);
    const std::string pid = std::to_string(peer.process().pid());
    int others = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/" + pid + "/task")) {
        const std::string status = readFile(task.path().string() + "/status");
        const uint64_t blocked = std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
        const bool isMain = task.path().filename() == pid;
        others += isMain ? 0 : 1;
        // The log's own thread and those of a sanitizer block everything.
        EXPECT_EQ(blocked & stopSignals, isMain ? 0 : stopSignals) << status;
    }
    EXPECT_GE(others, 4);
    peer.process().signal(SIGTERM);
    EXPECT_EQ(peer.process().wait(5000), 0);
    EXPECT_THAT(peer.lines(), ElementsAre());
    EXPECT_EQ(peer.errors(), "");
}

// A profile file that is a pipe without a writer: whoever opens it waits for ever.
TEST(Process, LoadsNoProfiles) {
    const TempFolder folder;
    for (const char* name : {"/DEFAULT_FASTRTPS_PROFILES.xml", "/profiles.xml", "/environment.json"}) {
        ASSERT_EQ(mkfifo((folder.path() + name).c_str(), 0600), 0);
    }
    Participant here;
    here.writes("t");
    here.start();
    // In that folder, by way of env.
    const std::string out = folder.path() + "/out";
    Process peer({"/usr/bin/env", "-C", folder.path(), V2X_BIN "/dds_peer", std::to_string(testDomain()), REAL_TIME,
                  "read", "t"},
                 {"FASTRTPS_DEFAULT_PROFILES_FILE=" + folder.path() + "/profiles.xml",
                  "FASTDDS_ENVIRONMENT_FILE=" + folder.path() + "/environment.json", "ROS_DISCOVERY_SERVER=127.0.0.1:1",
                  "FASTDDS_BUILTIN_TRANSPORTS=SHM"},
                 out, folder.path() + "/err");
    ASSERT_TRUE(here.awaits("t", 1));
    ASSERT_EQ(here.send("t", Bytes(1)), 0);
    EXPECT_TRUE(eventually([&] { return readFile(out) == describe("", 1) + "\n"; }));
}

TEST(Process, ExitsCleanlyWhileItSendsAndReceives) {
    Participant here;
    here.reads("flood", [](void*, unsigned int) {});
    here.writes("in");
    here.start();
    std::atomic<bool> isOver{false};
    std::thread sender([&] {
        while (!isOver) {
            here.send("in", Bytes(3000));
            std::this_thread::sleep_for(std::chrono::microseconds(200));
        }
    });
    for (int round = 0; round < 6; round++) {
        Peer peer("dds_peer", {REAL_TIME, "exit", "flood", "in"});
        EXPECT_EQ(peer.process().wait(20000), 0);
        EXPECT_EQ(peer.errors(), "");
        EXPECT_FALSE(peer.lines().empty());
    }
    isOver = true;
    sender.join();
}

TEST(Process, ExitsFromACallback) {
    Participant here;
    here.writes("t");
    here.start();
    for (int round = 0; round < 3; round++) {
        Peer peer("dds_peer", {REAL_TIME, "leave", "t"});
        EXPECT_TRUE(eventually([&] {
            here.send("t", Bytes(3000));
            return peer.process().wait(0) != -1;
        }));
        EXPECT_EQ(peer.process().wait(0), 7);
        EXPECT_EQ(peer.errors(), "");
    }
}

TEST(Foreign, CycloneReadsWhatIsSent) {
    const std::vector<size_t> sizes = {1, 1023, 1024, 1025, 2048, 20479};
    Participant here;
    here.writes("t");
    here.start();
    Peer peer("cyclone_peer", {"read", "real-time", "t"}, {cycloneOnLoopback()});
    // It takes what is sent once it knows the writer, which may be after the writer knows it.
    ASSERT_TRUE(eventually([&] {
        here.send("t", payload(sizes[0], 0));
        return !peer.lines().empty();
    })) << peer.errors();
    for (size_t i = 1; i < sizes.size(); i++) {
        ASSERT_EQ(here.send("t", payload(sizes[i], static_cast<uint8_t>(i))), 0);
    }
    const auto expected = piecesOfSizes(sizes);
    EXPECT_TRUE(eventually([&] { return peer.lines().back() == expected.back(); }));
    auto lines = peer.lines();
    while (lines.size() > 1 && lines[1] == lines[0]) {
        lines.erase(lines.begin());
    }
    EXPECT_THAT(lines, ElementsAreArray(expected));
}

TEST(Foreign, CycloneFindsWhatWasKept) {
    Participant here;
    here.writes("t", DDS_HISTORY_LAST);
    here.start();
    ASSERT_EQ(here.send("t", payload(10, 1)), 0);
    ASSERT_EQ(here.send("t", payload(10, 2)), 0);
    Peer peer("cyclone_peer", {"read", "last", "t"}, {cycloneOnLoopback()});
    EXPECT_TRUE(peer.printed(1)) << peer.errors();
    EXPECT_THAT(peer.lines(), ElementsAreArray(piecesOf(payload(10, 2))));
}

// Samples of a foreign writer come in the same pieces; an empty one is none, and one that is too long is passed over.
TEST(Foreign, CycloneSamplesArriveInPieces) {
    const std::vector<size_t> sizes = {1, 0, 1024, 1025, 20479, 1048576, 1048577, 3};
    Participant here;
    here.reads("t", Inbox::take<>);
    here.start();
    std::vector<std::string> arguments = {"write", "real-time", "t"};
    std::vector<std::string> expected;
    for (size_t i = 0; i < sizes.size(); i++) {
        arguments.push_back(std::to_string(sizes[i]));
        const auto pieces = piecesOf(payload(sizes[i] <= 1048576 ? sizes[i] : 0, static_cast<uint8_t>(i)));
        expected.insert(expected.end(), pieces.begin(), pieces.end());
    }
    Peer peer("cyclone_peer", arguments, {cycloneOnLoopback()});
    EXPECT_TRUE(Inbox::of().holds(expected.size())) << peer.errors();
    EXPECT_THAT(Inbox::of().all(), ElementsAreArray(expected));
}

TEST(Foreign, HostileSamplesAreRefused) {
    const TempFolder folder;
    V2X_LOGHANDLE tag = nullptr;
    ASSERT_EQ(v2xlog_Init((folder.path() + "/log").c_str(), "SDDS", 1, 0, 0), 0);
    ASSERT_EQ(v2xlog_AddTag("SDDS", &tag), 0);
    Participant here;
    here.reads("t", Inbox::take<>);
    here.writes("unused");
    here.start();
    RawWriter hostile(testDomain(), "t");
    // Samples are not kept for a reader that is not there yet: the good one until it arrives.
    ASSERT_TRUE(eventually([&] {
        hostile.send({0, 1, 0, 0, 1, 0, 0, 0, 42});
        return !Inbox::of().all().empty();
    }));
    const Bytes samples[] = {{0},
                             {0, 1, 0, 0},
                             {0, 1, 0, 0, 255, 255, 255, 255, 1},
                             {0, 1, 0, 0, 5, 0, 0, 0, 1, 2, 3, 4},
                             {0, 3, 0, 0, 1, 0, 0, 0, 1},
                             {0, 0, 0, 0, 1, 0, 0, 0, 1}};
    for (int round = 0; round < 10; round++) {
        for (const Bytes& sample : samples) {
            hostile.send(sample);
        }
    }
    hostile.send({0, 1, 0, 0, 1, 0, 0, 0, 43});
    const uint8_t last = 43;
    EXPECT_TRUE(eventually([&] { return Inbox::of().all().back() == describe(&last, 1); }));
    const uint8_t first = 42;
    for (const std::string& piece : Inbox::of().all()) {
        EXPECT_TRUE(piece == describe(&first, 1) || piece == describe(&last, 1)) << piece;
    }
    EXPECT_EQ(countsOf("dds")["refused"], 60U);
    const std::string log = readFile(folder.path() + "/log");
    EXPECT_THAT(log, HasSubstr("topic t: refused a sample"));
    EXPECT_LT(std::count(log.begin(), log.end(), '\n'), 20);
}

} // namespace
