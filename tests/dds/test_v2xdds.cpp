// The DDS library within one process: calls, pieces, order, life cycle, and the process's sockets and threads.
#include <fcntl.h>
#include <netinet/in.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <sys/syscall.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <deque>
#include <future>
#include <map>
#include <thread>

#include "dds/dds_test.h"
#include "journal_entries.h"
#include "udp_peer.h"
#include "v2x/v2xwatch.h"
#include "v2xdds_reader.h"

static std::atomic<bool> g_isSilent{false}; // no datagram leaves the process

// Replaces the system's function for the library's datagrams.
extern "C" ssize_t sendto(int fd, const void* data, size_t length, int flags, const sockaddr* to, socklen_t size) {
    return g_isSilent ? static_cast<ssize_t>(length) : syscall(SYS_sendto, fd, data, length, flags, to, size);
}

namespace {

using testing::HasSubstr;
using testing::Not;
using Calls = DdsTest;
using Samples = DdsTest;
using Callback = DdsTest;
using Life = DdsTest;
using Traces = DdsTest;

constexpr dds_RecvCallback IGNORE = [](void*, unsigned int) {};

// A queue that holds `count` samples.
class FilledQueue : public v2xdds_queue {
public:
    FilledQueue(size_t count, uint32_t size) : m_samples(count) {
        for (eprosima::fastrtps::rtps::CacheChange_t& sample : m_samples) {
            sample.serializedPayload.length = size;
            m_changes.push_back(&sample);
        }
    }
    ~FilledQueue() override { m_changes.clear(); }
    // Makes the last one an incomplete sample of this writer.
    void begin(const eprosima::fastrtps::rtps::GUID_t& writer, uint32_t size) {
        m_samples.back().writerGUID = writer;
        m_samples.back().serializedPayload.reserve(size); // Fast DDS keeps the list of missing fragments in it
        m_samples.back().serializedPayload.length = size;
        m_samples.back().setFragmentSize(60000, true);
    }

private:
    std::vector<eprosima::fastrtps::rtps::CacheChange_t> m_samples;
};

// At most 1024 samples and four maximum payloads wait, and samples behind a gap leave room for the missing one.
TEST(Queue, KeepsRoomForWhatIsMissing) {
    constexpr uint32_t LARGEST = 1048587;
    const struct {
        size_t held;
        uint32_t heldSize;
        uint32_t size;
        size_t missing; // samples in front of this one that have not arrived
        bool isBegun;
        bool isAccepted;
        bool isTooLong;
    } cases[] = {
        {0, 0, 1032, 0, false, true, false},         {0, 0, 1032, 1022, false, true, false},
        {0, 0, 1032, 1023, false, false, false},     {1021, 1032, 1032, 1, false, true, false},
        {1022, 1032, 1032, 1, false, false, false},  {1023, 1032, 1032, 0, false, true, false},
        {1024, 1032, 1032, 0, false, false, false},  {0, 0, LARGEST, 0, false, true, false},
        {0, 0, LARGEST + 1, 0, false, false, true},  {34, 60000, 60000, 1, false, false, false},
        {52, 60000, LARGEST, 0, false, true, false}, {53, 60000, LARGEST, 0, true, true, false},
        {1024, 1032, LARGEST, 0, true, true, false}, {1024, 1032, LARGEST, 1, true, false, false},
        {1, 1032, LARGEST, 1, true, true, false},    {2, LARGEST, LARGEST, 1, true, false, false},
    };
    eprosima::fastrtps::rtps::GUID_t writer;
    writer.guidPrefix.value[0] = 1;
    writer.entityId = 0x103;
    for (const auto& row : cases) {
        FilledQueue queue(row.held, row.heldSize);
        if (row.isBegun) {
            queue.begin(writer, row.size);
        }
        bool isTooLong = false;
        EXPECT_EQ(queue.can_change_be_added_nts(writer, row.size, row.missing, isTooLong), row.isAccepted)
            << row.held << " " << row.size << " " << row.missing;
        EXPECT_EQ(isTooLong, row.isTooLong) << row.size << " " << row.missing;
    }
}

TEST_F(Calls, RejectInvalidArguments) {
    void* const one = create_dds();
    EXPECT_TRUE(dds_reg(one, 1, "t", nullptr, 0));
    EXPECT_TRUE(dds_reg(one, 1, "t", IGNORE, 0));
    EXPECT_TRUE(set_history_qos(one, "t", 0, 0));
    EXPECT_TRUE(set_white_list_iface(one, "127.0.0.1"));
    const bool isAccepted[] = {
        dds_reg(nullptr, 1, "u", nullptr, 0),
        dds_reg(one, 1, nullptr, nullptr, 0),
        dds_reg(one, 1, std::string(256, 'x').c_str(), nullptr, 0),
        dds_reg(create_dds(), 233, "u", nullptr, 0),
        dds_reg(one, 2, "u", nullptr, 0), // another domain
        dds_reg(one, 1, "u", nullptr, 1), // unknown type
        dds_reg(one, 1, "t", nullptr, 0), // second writer
        dds_reg(one, 1, "t", IGNORE, 0),  // second reader
        set_history_qos(nullptr, "t", 0, 0),
        set_history_qos(one, nullptr, 0, 0),
        set_history_qos(one, "unknown", 0, 0),
        set_history_qos(one, "t", 3, 0),
        set_white_list_iface(nullptr, "127.0.0.1"),
        set_white_list_iface(one, nullptr),
        set_white_list_iface(one, "0.0.0.0"),
        dds_start(nullptr),
        dds_send(nullptr, "t", "", 1) != -1,
        dds_send(one, nullptr, "", 1) != -1,
        dds_send(one, "t", nullptr, 1) != -1,
        dds_send(one, "t", "", 1) != -1, // not started
        get_match_cnt(nullptr, "t") != 0,
        get_match_cnt(one, nullptr) != 0,
        get_match_cnt(one, "t") != 0,
    };
    EXPECT_THAT(isAccepted, testing::Each(false));
    destroy_dds(nullptr);
}

TEST_F(Calls, SendOnDeclaredTopicsOfARunningParticipantOnly) {
    Participant one({{"t"}, {"r", IGNORE}});
    for (const bool isDestroyed : {false, true}) {
        SCOPED_TRACE(isDestroyed);
        EXPECT_FALSE(dds_start(one.handle()));
        EXPECT_FALSE(dds_reg(one.handle(), testDomain(), "late", nullptr, 0));
        EXPECT_EQ(one.send("t", Bytes(1048576)), isDestroyed ? -1 : 0);
        EXPECT_EQ(one.send("t", Bytes(1048577)), -1);
        EXPECT_EQ(one.send("t", {}), -1);
        EXPECT_EQ(one.send("r", Bytes(1)), -1);
        EXPECT_EQ(one.matched("r"), 0);
        one.destroy();
    }
}

TEST_F(Samples, AreCopiedToTheJournalIfSelected) {
    const std::string topic(200, 't');
    Participant both({{topic.c_str()}, {topic.c_str(), Inbox::take}});
    ASSERT_TRUE(both.awaits(topic.c_str(), 1));
    v2x_journal::Select(v2x_journalKind::sample, true);
    EXPECT_EQ(both.send(topic.c_str(), pattern(1025, 1)), 0);
    ASSERT_TRUE(eventually([] { return Inbox::all().size() == 2; }));
    v2x_journal::Select(v2x_journalKind::sample, false);
    Bytes bytes[2];
    takeEntries<dds_tap_t>([&](const dds_tap_t& tap, const Bytes& octets) {
        EXPECT_EQ(tap.topic, topic.substr(0, 126));
        EXPECT_NEAR(static_cast<double>(tap.time) / 1e6, static_cast<double>(time(nullptr)), 60);
        bytes[tap.isSent].insert(bytes[tap.isSent].end(), octets.begin(), octets.end());
        return "";
    });
    EXPECT_THAT(bytes, testing::Each(pattern(1025, 1)));
}

TEST_F(Samples, OfOnePayloadStayTogether) {
    constexpr int EACH = 100;
    Participant both({{"t", nullptr, DDS_HISTORY_ALL}, {"t", Inbox::take, DDS_HISTORY_ALL}});
    ASSERT_TRUE(both.awaits("t", 1));
    std::map<std::vector<std::string>, int> expected;
    std::deque<std::thread> senders;
    for (uint8_t seed = 1; seed <= 4; seed++) {
        std::vector<std::string> pieces;
        addPieces(pieces, pattern(3000, seed));
        expected[pieces] = EACH;
        senders.emplace_back([&, seed] {
            for (int i = 0; i < EACH; i++) {
                EXPECT_EQ(both.send("t", pattern(3000, seed)), 0);
            }
        });
    }
    std::ranges::for_each(senders, &std::thread::join);
    ASSERT_TRUE(eventually([] { return Inbox::all().size() >= 4 * EACH * 3; }));
    const auto all = Inbox::all();
    std::map<std::vector<std::string>, int> received;
    for (auto at = all.begin(); at != all.end(); at += 3) {
        received[{at, at + 3}]++;
    }
    EXPECT_EQ(received, expected);
}

TEST_F(Samples, AreKeptForLateReaders) {
    Participant writer({{"t", nullptr, DDS_HISTORY_ALL}});
    std::vector<std::string> sent;
    for (uint8_t seed = 0; seed < 100; seed++) {
        addPieces(sent, pattern(10, seed));
        ASSERT_EQ(writer.send("t", pattern(10, seed)), 0);
    }
    const Participant reader({{"t", Inbox::take, DDS_HISTORY_ALL}});
    Inbox::expect(sent);
}

std::atomic<Participant*> g_own;
std::atomic<bool> g_isHeld;
std::atomic<int> g_calls;

void hold(void* /*data*/, unsigned int /*len*/) {
    g_own.load()->destroy(); // does nothing in a callback
    EXPECT_EQ(g_own.load()->send("other", Bytes(1)), 0);
    g_calls++;
    EXPECT_TRUE(eventually([] { return !g_isHeld; }));
    g_calls++;
}

TEST_F(Callback, RunsAloneMaySendAndDelaysOnlyTheEnd) {
    g_isHeld = true;
    g_calls = 0;
    Participant writer({{"t"}});
    Participant reader({{"t", hold}, {"other"}});
    g_own = &reader;
    ASSERT_TRUE(writer.awaits("t", 1));
    for (int i = 0; i < 50; i++) {
        ASSERT_EQ(writer.send("t", Bytes(10)), 0);
    }
    ASSERT_TRUE(eventually([] { return g_calls == 1; }));
    EXPECT_THAT(v2x_watchedThread::FindStuck(1), testing::IsEmpty());
    EXPECT_THAT(v2x_watchedThread::FindStuck(1 + v2x_watchedThread::LIMIT), testing::ElementsAre("v2xdds"));
    EXPECT_EQ(reader.send("other", Bytes(10)), 0);
    const std::future<void> end = std::async(std::launch::async, [&] { reader.destroy(); });
    EXPECT_TRUE(eventually([&] { return reader.send("other", Bytes(10)) == -1; })) << "destroy_dds has begun";
    EXPECT_EQ(end.wait_for(std::chrono::milliseconds(500)), std::future_status::timeout);
    EXPECT_EQ(g_calls, 1);
    g_isHeld = false;
    end.wait();
    EXPECT_EQ(g_calls, 2); // the 49 waiting samples are discarded
    EXPECT_TRUE(writer.awaits("t", 0));
}

TEST_F(Life, EndsWhileOthersSendAndCount) {
    for (int round = 0; round < 5; round++) {
        Participant both({{"t"}, {"t", IGNORE}});
        std::atomic<bool> isOver{false};
        std::deque<std::thread> users;
        for (int i = 0; i < 3; i++) {
            users.emplace_back([&] {
                while (!isOver) {
                    both.send("t", Bytes(3000));
                    both.matched("t");
                }
            });
        }
        ASSERT_TRUE(both.awaits("t", 1));
        std::thread second([&] { both.destroy(); });
        both.destroy();
        EXPECT_EQ(both.send("t", Bytes(1)), -1);
        EXPECT_EQ(both.matched("t"), 0);
        second.join();
        isOver = true;
        std::ranges::for_each(users, &std::thread::join);
    }
}

// A writer that ends without a good-bye is still known to its readers when it is made again.
TEST_F(Life, SamplesOfASecondLifeAreNotTakenForRepeats) {
    const Participant reader({{"t", Inbox::take}});
    std::vector<std::string> expected;
    for (uint8_t seed = 0; seed < 3; seed++) {
        Participant writer({{"t"}});
        ASSERT_TRUE(writer.awaits("t", 1));
        addPieces(expected, pattern(3000, seed));
        ASSERT_EQ(writer.send("t", pattern(3000, seed)), 0);
        Inbox::expect(expected);
        g_isSilent = true;
        writer.destroy();
        g_isSilent = false;
    }
}

// Fast DDS by itself finds participants on the first four pairs of ports only.
TEST_F(Life, UsesTheFreePairsOfPortsAmongThirtyTwo) {
    // RTPS 2.3, 9.6.1: the port for discovery; samples use the next one.
    const auto discoveryPort = [](int pair) {
        return static_cast<uint16_t>(7400 + 250 * testDomain() + 10 + 2 * pair);
    };
    std::deque<UdpPeer> taken;
    for (int pair = 0; pair < 32; pair++) { // one port of a pair is enough
        ASSERT_TRUE(taken.emplace_back(discoveryPort(pair) + pair % 2).isBound()) << pair;
    }
    void* const none = create_dds();
    ASSERT_TRUE(dds_reg(none, testDomain(), "t", nullptr, 0));
    EXPECT_FALSE(dds_start(none));
    taken.resize(30);
    for (int round = 0; round < 2; round++) { // destroyed participants release their pairs
        Participant writer({{"t"}});
        const Participant reader({{"t", IGNORE}});
        EXPECT_TRUE(writer.awaits("t", 1));
    }
}

TEST_F(Traces, AreSocketsOnLoopbackOnly) {
    constexpr int DESCRIPTORS = 1024;
    bool isInherited[DESCRIPTORS] = {};
    for (int fd = 0; fd < DESCRIPTORS; fd++) {
        isInherited[fd] = fcntl(fd, F_GETFD) >= 0;
    }
    const Participant both({{"t"}, {"t", IGNORE}});
    int sockets = 0;
    for (int fd = 0; fd < DESCRIPTORS; fd++) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        if (isInherited[fd] || getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            continue;
        }
        ASSERT_EQ(address.sin_family, AF_INET);
        if (address.sin_port != 0) { // one without a port queries the addresses of interfaces
            EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
            sockets++;
        }
    }
    EXPECT_EQ(sockets, 3); // discovery, samples, one for sending
    EXPECT_THAT(readFile("/proc/self/maps"), Not(HasSubstr("/dev/shm")));
    // The multicast address of discovery, 239.255.0.1, as the kernel prints it
    EXPECT_THAT(readFile("/proc/net/igmp"), Not(HasSubstr("0100FFEF")));
}

// inotify reports every file of the folder that is opened.
TEST_F(Traces, AreNoProfilesThatAreLoaded) {
    const TempFolder folder;
    for (const char* name : {"/DEFAULT_FASTRTPS_PROFILES.xml", "/profiles.xml", "/environment.json"}) {
        writeFile(folder.path() + name, "{}");
    }
    const int opened = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
    ASSERT_GE(inotify_add_watch(opened, folder.path().c_str(), IN_OPEN), 0);
    ASSERT_EQ(chdir(folder.path().c_str()), 0);
    setenv("FASTRTPS_DEFAULT_PROFILES_FILE", "profiles.xml", 1);
    setenv("FASTDDS_ENVIRONMENT_FILE", "environment.json", 1);
    setenv("ROS_DISCOVERY_SERVER", "127.0.0.1:1", 1);
    setenv("FASTDDS_BUILTIN_TRANSPORTS", "SHM", 1);
    Participant both({{"t"}, {"t", IGNORE}});
    EXPECT_TRUE(both.awaits("t", 1));
    char event[512];
    EXPECT_EQ(read(opened, event, sizeof event), -1);
    readFile("profiles.xml"); // inotify works
    EXPECT_GT(read(opened, event, sizeof event), 0);
    close(opened);
    ASSERT_EQ(chdir("/"), 0);
}

} // namespace
