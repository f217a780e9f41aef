// The DDS library within one process: calls, pieces, order, life, and what the process shows of it.
#include <fcntl.h>
#include <gmock/gmock.h>
#include <netinet/in.h>
#include <sys/inotify.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cctype>
#include <climits>
#include <csignal>
#include <deque>
#include <fastdds/rtps/participant/ParticipantDiscoveryInfo.h>
#include <fastdds/rtps/reader/ReaderDiscoveryInfo.h>
#include <fastdds/rtps/writer/WriterDiscoveryInfo.h>
#include <filesystem>
#include <map>
#include <optional>
#include <thread>

#include "counts.h"
#include "dds/dds_test.h"
#include "udp_peer.h"
#include "v2xdds_cdr.h"
#include "v2xdds_peers.h"
#include "v2xdds_reader.h"

namespace {

using testing::ElementsAre;
using testing::ElementsAreArray;
using testing::HasSubstr;
using testing::Not;

TEST(Cdr, EncodesPlainLittleEndian) {
    Bytes sample(V2XDDS_CDR_HEAD + 0x10203);
    v2xdds_Encode(Bytes(0x10203, 7), sample.data());
    sample.resize(V2XDDS_CDR_HEAD + 1);
    EXPECT_THAT(sample, ElementsAre(0, 1, 0, 0, 3, 2, 1, 0, 7));
}

TEST(Cdr, DecodesWhatIsWithinTheSampleOnly) {
    const struct {
        const char* what;
        Bytes sample;
        std::optional<Bytes> octets;
    } rows[] = {
        {"little-endian", {0, 1, 0, 0, 2, 0, 0, 0, 7, 8}, Bytes{7, 8}},
        {"big-endian", {0, 0, 0, 0, 0, 0, 0, 2, 7, 8}, Bytes{7, 8}},
        {"padding behind", {0, 1, 0, 3, 1, 0, 0, 0, 7, 0, 0, 0}, Bytes{7}},
        {"empty", {0, 1, 0, 0, 0, 0, 0, 0}, Bytes{}},
        {"one octet short", {0, 1, 0, 0, 3, 0, 0, 0, 7, 8}, std::nullopt},
        {"greatest length", {0, 1, 0, 0, 255, 255, 255, 255, 7}, std::nullopt},
        {"parameter list", {0, 3, 0, 0, 1, 0, 0, 0, 7}, std::nullopt},
        {"another family", {1, 1, 0, 0, 1, 0, 0, 0, 7}, std::nullopt},
        {"cut in the length", {0, 1, 0, 0, 0, 0, 0}, std::nullopt},
        {"nothing", {}, std::nullopt},
    };
    for (const auto& row : rows) {
        Bytes exact(row.sample); // ends where it ends, so that a sanitizer sees a read behind it
        exact.shrink_to_fit();
        const auto octets = v2xdds_Decode(exact);
        ASSERT_EQ(octets.has_value(), row.octets.has_value()) << row.what;
        if (octets) {
            EXPECT_EQ(Bytes(octets->begin(), octets->end()), *row.octets) << row.what;
        }
    }
}

// A queue that holds samples of one writer.
class FilledQueue : public v2xdds_queue {
public:
    FilledQueue(size_t count, uint32_t size) : m_samples(count) {
        for (eprosima::fastrtps::rtps::CacheChange_t& sample : m_samples) {
            sample.serializedPayload.length = size;
            m_changes.push_back(&sample);
        }
    }
    ~FilledQueue() override { m_changes.clear(); }
    // The last one is the writer's, and not all of its fragments have come.
    void begin(const eprosima::fastrtps::rtps::GUID_t& writer, uint32_t size) {
        m_samples.back().writerGUID = writer;
        m_samples.back().serializedPayload.reserve(size); // the library notes in it what is missing
        m_samples.back().serializedPayload.length = size;
        m_samples.back().setFragmentSize(60000, true);
    }

private:
    std::vector<eprosima::fastrtps::rtps::CacheChange_t> m_samples;
};

// 1024 samples and four payloads of the greatest length wait at most, and what is ahead of a gap leaves room for it.
TEST(Queue, KeepsRoomForWhatIsMissing) {
    constexpr uint32_t LARGEST = 1048587;
    const struct {
        size_t held;
        uint32_t heldSize;
        uint32_t size;
        size_t missing; // samples in front of this one that have not come
        bool isBegun;
        bool isTaken;
        bool isNever;
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
        bool isNever = false;
        EXPECT_EQ(queue.can_change_be_added_nts(writer, row.size, row.missing, isNever), row.isTaken)
            << row.held << " " << row.size << " " << row.missing;
        EXPECT_EQ(isNever, row.isNever) << row.size << " " << row.missing;
    }
    EXPECT_EQ(countsOf("dds")["too_long"], 1U);
}

// Tells the watch what the library would, in letters: a peer is (F)ound, (D)ropped by its lease, (C)hanged, or takes
// its leave (B); a (R)eader or (W)riter of it is found, in lower case removed, or a reader of (O)ther topics.
void tell(v2xdds_peers& watch, uint8_t peer, const char* events) {
    using namespace eprosima::fastrtps::rtps;
    RTPSParticipantListener& listener = watch;
    ParticipantProxyData participant({});
    ReaderProxyData reader(1, 0);
    WriterProxyData writer(1, 0);
    for (GuidPrefix_t* prefix :
         {&participant.m_guid.guidPrefix, &reader.guid().guidPrefix, &writer.guid().guidPrefix}) {
        prefix->value[5] = peer;
    }
    for (const char* event = events; *event != 0; event++) {
        const auto name = static_cast<char>(toupper(*event));
        ParticipantDiscoveryInfo ofPeer(participant);
        ofPeer.status = name == 'F'   ? ParticipantDiscoveryInfo::DISCOVERED_PARTICIPANT
                        : name == 'D' ? ParticipantDiscoveryInfo::DROPPED_PARTICIPANT
                        : name == 'C' ? ParticipantDiscoveryInfo::CHANGED_QOS_PARTICIPANT
                                      : ParticipantDiscoveryInfo::REMOVED_PARTICIPANT;
        reader.topicName(name == 'O' ? "other" : "ours");
        writer.topicName("ours");
        ReaderDiscoveryInfo ofReader(reader);
        ofReader.status =
            islower(*event) ? ReaderDiscoveryInfo::REMOVED_READER : ReaderDiscoveryInfo::DISCOVERED_READER;
        WriterDiscoveryInfo ofWriter(writer);
        ofWriter.status =
            islower(*event) ? WriterDiscoveryInfo::REMOVED_WRITER : WriterDiscoveryInfo::DISCOVERED_WRITER;
        if (name == 'W') {
            listener.onWriterDiscovery(nullptr, std::move(ofWriter));
        } else if (name == 'R' || name == 'O') {
            listener.onReaderDiscovery(nullptr, std::move(ofReader));
        } else {
            listener.onParticipantDiscovery(nullptr, std::move(ofPeer));
        }
    }
}

bool isOurs(v2xdds_peers::Kind /*kind*/, const char* topic) {
    return std::string(topic) == "ours";
}

TEST(Watch, TakesPeersForLostThatComeBackWithoutWhatTheyHad) {
    const struct {
        const char* events;
        bool isLost;
    } cases[] = {
        {"FRW", false},       {"FRWrw", false},     {"FRWrwD", false},
        {"FRWrwDFC", true},   {"FRWCrwDF", true},   {"RWF", false},
        {"RWFrwDF", false},   {"FRWrwDF", true},    {"FRWrwDFRW", false},
        {"FRWrwDFR", true},   {"FRWrwDFW", true},   {"FRrDF", true},
        {"FRrDFR", false},    {"FRRrrDFR", false},  {"FDF", false},
        {"FOoDF", false},     {"FRWrwDB", false},   {"FRWrwDBF", false},
        {"FRWrwDFB", false},  {"FRWrwFD", true}, // the library's threads tell of both at once
        {"FRWrwFRWD", false}, {"FRWrwFDRW", false}, {"FRWrwDFDF", true},
        {"FRWrwDFD", false},
    };
    for (const auto& row : cases) {
        v2xdds_peers watch(isOurs, [] {});
        tell(watch, 2, "FRW");
        const auto before = v2xdds_peers::Clock::now();
        tell(watch, 1, row.events);
        const auto due = watch.Due();
        EXPECT_EQ(due != v2xdds_peers::Clock::time_point::max(), row.isLost) << row.events;
        if (row.isLost) {
            EXPECT_GE(due, before + std::chrono::seconds(4)) << row.events;
            EXPECT_LE(due, v2xdds_peers::Clock::now() + std::chrono::seconds(4)) << row.events;
        }
        watch.Forget();
        tell(watch, 1, "F");
        EXPECT_EQ(watch.Due(), v2xdds_peers::Clock::time_point::max()) << row.events;
    }
}

// Peers that are killed never come back: the one that is away for longest makes way.
TEST(Watch, RemembersThirtyTwoThatAreAway) {
    v2xdds_peers watch(isOurs, [] {});
    tell(watch, 100, "FR");
    for (uint8_t peer = 0; peer < 34; peer++) {
        tell(watch, peer, "FRrD");
    }
    tell(watch, 101, "FD"); // without anything of ours it is not remembered
    for (uint8_t peer = 0; peer < 2; peer++) {
        tell(watch, peer, "F");
    }
    EXPECT_EQ(watch.Due(), v2xdds_peers::Clock::time_point::max());
    tell(watch, 2, "F");
    EXPECT_NE(watch.Due(), v2xdds_peers::Clock::time_point::max());
}

TEST(Calls, RefuseWhatCannotBeDeclared) {
    Participant one;
    void* const handle = one.handle();
    const std::string longName(256, 'x');
    const struct {
        const char* what;
        void* handle;
        int32_t domain;
        const char* topic;
        int32_t type;
        bool isTaken;
    } rows[] = {
        {"no handle", nullptr, 1, "t", 0, false},    {"no name", handle, 1, nullptr, 0, false},
        {"empty name", handle, 1, "", 0, false},     {"long name", handle, 1, longName.c_str(), 0, false},
        {"domain below", handle, -1, "t", 0, false}, {"domain above", handle, 233, "t", 0, false},
        {"other type", handle, 1, "t", 1, false},    {"good", handle, 1, "t", 0, true},
        {"again", handle, 1, "t", 0, false},         {"another domain", handle, 2, "u", 0, false},
        {"second", handle, 1, "u", 0, true},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(dds_reg(row.handle, row.domain, row.topic, nullptr, row.type), row.isTaken) << row.what;
    }
    EXPECT_TRUE(dds_reg(handle, 1, "t", Inbox::take<>, 0)); // as a reader as well
    EXPECT_FALSE(dds_reg(handle, 1, "t", Inbox::take<1>, 0));

    EXPECT_TRUE(set_history_qos(handle, "t", 0, 0));
    EXPECT_FALSE(set_history_qos(handle, "t", 3, 0));
    EXPECT_FALSE(set_history_qos(handle, "t", -1, 0));
    EXPECT_FALSE(set_history_qos(handle, "unknown", 0, 0));
    EXPECT_FALSE(set_history_qos(handle, nullptr, 0, 0));
    EXPECT_FALSE(set_history_qos(nullptr, "t", 0, 0));

    for (const char* address : {"0.0.0.0", "127.0.0.9", "lo", "127.0.0.1 "}) {
        EXPECT_FALSE(set_white_list_iface(handle, address)) << address;
    }
    EXPECT_FALSE(set_white_list_iface(handle, nullptr));
    EXPECT_FALSE(set_white_list_iface(nullptr, "127.0.0.1"));
    EXPECT_TRUE(set_white_list_iface(handle, "127.0.0.1"));
    EXPECT_FALSE(dds_start(nullptr));
}

TEST(Calls, SendWhatIsDeclaredAndStartedOnly) {
    Participant one;
    one.writes("t");
    one.reads("r", Inbox::take<>);
    const Bytes byte(1);
    EXPECT_EQ(one.send("t", byte), -1); // not started
    EXPECT_EQ(get_match_cnt(one.handle(), "t"), 0);
    one.start();
    EXPECT_FALSE(dds_start(one.handle()));
    EXPECT_FALSE(dds_reg(one.handle(), testDomain(), "late", nullptr, 0));
    EXPECT_FALSE(set_history_qos(one.handle(), "t", 1, 0));
    EXPECT_FALSE(set_white_list_iface(one.handle(), "127.0.0.1"));
    EXPECT_EQ(one.send("t", byte), 0);
    EXPECT_EQ(one.send("t", Bytes(1048576)), 0);
    EXPECT_EQ(one.send("t", Bytes(1048577)), -1);
    EXPECT_EQ(one.send("r", byte), -1);
    EXPECT_EQ(one.send("unknown", byte), -1);
    EXPECT_EQ(dds_send(one.handle(), "t", byte.data(), 0), -1);
    EXPECT_EQ(dds_send(one.handle(), "t", nullptr, 1), -1);
    EXPECT_EQ(dds_send(one.handle(), nullptr, byte.data(), 1), -1);
    EXPECT_EQ(dds_send(nullptr, "t", byte.data(), 1), -1);
    EXPECT_EQ(get_match_cnt(one.handle(), "unknown"), 0);
    EXPECT_EQ(get_match_cnt(one.handle(), nullptr), 0);
    EXPECT_EQ(get_match_cnt(nullptr, "t"), 0);

    destroy_dds(one.handle());
    destroy_dds(one.handle());
    destroy_dds(nullptr);
    EXPECT_EQ(one.send("t", byte), -1);
    EXPECT_EQ(get_match_cnt(one.handle(), "t"), 0);
    EXPECT_FALSE(dds_start(one.handle()));
    EXPECT_FALSE(dds_reg(one.handle(), testDomain(), "u", nullptr, 0));
    EXPECT_FALSE(set_history_qos(one.handle(), "t", 1, 0));
}

// A writer and a reader of topic "t", on which all is kept.
class Pair : public testing::Test {
protected:
    void connect(dds_RecvCallback callback) {
        writer.writes("t", DDS_HISTORY_ALL);
        reader.reads("t", callback, DDS_HISTORY_ALL);
        writer.start();
        reader.start();
        ASSERT_TRUE(writer.awaits("t", 1));
    }

    Participant writer;
    Participant reader;
};

TEST_F(Pair, LosesNothingOfTheLongestPayload) {
    connect(Inbox::take<>);
    const Bytes longest = pattern(1048576, 3);
    ASSERT_EQ(writer.send("t", longest), 0);
    EXPECT_TRUE(Inbox::of().holds(1024));
    EXPECT_THAT(Inbox::of().all(), ElementsAreArray(piecesOf(longest)));
}

TEST_F(Pair, KeepsThePiecesOfOnePayloadTogether) {
    constexpr int EACH = 100;
    connect(Inbox::take<>);
    std::vector<std::thread> senders;
    for (uint8_t seed = 1; seed <= 4; seed++) {
        senders.emplace_back([&, seed] {
            for (int i = 0; i < EACH; i++) {
                EXPECT_EQ(writer.send("t", pattern(3000, seed)), 0);
            }
        });
    }
    for (std::thread& sender : senders) {
        sender.join();
    }
    ASSERT_TRUE(Inbox::of().holds(4 * EACH * 3));
    const auto all = Inbox::of().all();
    std::map<std::vector<std::string>, int> payloads;
    for (auto at = all.begin(); at != all.end(); at += 3) {
        payloads[{at, at + 3}]++;
    }
    EXPECT_EQ(payloads.size(), 4U);
    for (uint8_t seed = 1; seed <= 4; seed++) {
        EXPECT_EQ(payloads[piecesOf(pattern(3000, seed))], EACH);
    }
}

TEST(Topic, GivesLateReadersWhatItsSettingKeeps) {
    Participant writer;
    writer.writes("all", DDS_HISTORY_ALL);
    writer.writes("last", DDS_HISTORY_LAST);
    writer.writes("now", DDS_HISTORY_REAL_TIME);
    writer.start();
    std::vector<std::string> sent;
    for (uint8_t seed = 0; seed < 100; seed++) {
        const Bytes bytes = pattern(10, seed);
        sent.push_back(describe(bytes.data(), bytes.size()));
        for (const char* topic : {"all", "last", "now"}) {
            ASSERT_EQ(writer.send(topic, bytes), 0);
        }
    }
    Participant reader;
    reader.reads("all", Inbox::take<0>, DDS_HISTORY_ALL);
    reader.reads("last", Inbox::take<1>, DDS_HISTORY_LAST);
    reader.reads("now", Inbox::take<2>, DDS_HISTORY_REAL_TIME);
    reader.start();
    ASSERT_TRUE(writer.awaits("all", 1) && writer.awaits("last", 1) && writer.awaits("now", 1));
    ASSERT_EQ(writer.send("now", pattern(10, 200)), 0);
    ASSERT_TRUE(Inbox::of<0>().holds(100) && Inbox::of<1>().holds(1) && Inbox::of<2>().holds(1));
    EXPECT_THAT(Inbox::of<0>().all(), ElementsAreArray(sent));
    EXPECT_THAT(Inbox::of<1>().all(), ElementsAre(sent.back()));
    EXPECT_THAT(Inbox::of<2>().all(), ElementsAre(piecesOf(pattern(10, 200))[0]));
}

// A callback that is held, and says how many of its kind ran at once.
struct Gate {
    std::atomic<bool> isHeld{true};
    std::atomic<int> calls{0};
    std::atomic<int> running{0};
    std::atomic<int> most{0};

    void pass() {
        most = std::max(most.load(), ++running);
        calls++;
        while (isHeld) {
            std::this_thread::sleep_for(std::chrono::milliseconds(1));
        }
        running--;
    }
};
Gate g_gate;

// Fifty samples, and the reader's callback held in the first.
class HeldCallback : public Pair {
protected:
    void SetUp() override {
        reader.writes("other");
        connect([](void*, unsigned int) { g_gate.pass(); });
        for (int i = 0; i < 50; i++) {
            ASSERT_EQ(writer.send("t", Bytes(10)), 0);
        }
        ASSERT_TRUE(eventually([] { return g_gate.calls == 1; }));
    }
};

TEST_F(HeldCallback, RunsAloneAndHoldsUpNoSender) {
    EXPECT_EQ(writer.send("t", Bytes(10)), 0);
    EXPECT_EQ(reader.send("other", Bytes(10)), 0);
    EXPECT_EQ(get_match_cnt(writer.handle(), "t"), 1);
    EXPECT_EQ(g_gate.calls, 1);
    g_gate.isHeld = false;
    EXPECT_TRUE(eventually([] { return g_gate.calls == 51; }));
    EXPECT_EQ(g_gate.most, 1);
}

TEST_F(HeldCallback, IsWaitedForByTheEnd) {
    std::atomic<bool> isEnded{false};
    std::thread destroyer([&] {
        destroy_dds(reader.handle());
        isEnded = true;
    });
    EXPECT_TRUE(eventually([&] { return reader.send("other", Bytes(10)) == -1; })) << "the end has begun";
    std::this_thread::sleep_for(std::chrono::seconds(1));
    EXPECT_FALSE(isEnded);
    g_gate.isHeld = false;
    destroyer.join();
    EXPECT_EQ(g_gate.running, 0);
    EXPECT_EQ(g_gate.calls, 1); // the 49 that waited are gone
    EXPECT_TRUE(writer.awaits("t", 0));
}

Participant* g_own = nullptr;

TEST(Callback, MaySendAndCannotDestroyItsParticipant) {
    Participant both;
    g_own = &both;
    both.writes("t");
    both.writes("answer");
    both.reads("t", [](void*, unsigned int) {
        destroy_dds(g_own->handle());
        EXPECT_EQ(g_own->send("answer", Bytes{9}), 0);
    });
    both.reads("answer", Inbox::take<>);
    both.start();
    ASSERT_TRUE(both.awaits("t", 1) && both.awaits("answer", 1));
    for (int i = 1; i <= 3; i++) {
        ASSERT_EQ(both.send("t", Bytes(1)), 0);
        EXPECT_TRUE(Inbox::of().holds(static_cast<size_t>(i)));
    }
}

TEST(Life, EndsWhileOthersSendAndCount) {
    for (int round = 0; round < 5; round++) {
        Participant both;
        both.writes("t");
        both.reads("t", [](void*, unsigned int) {});
        both.start();
        std::atomic<bool> isOver{false};
        std::vector<std::thread> users;
        for (int i = 0; i < 3; i++) {
            users.emplace_back([&] {
                const Bytes bytes(3000);
                while (!isOver) {
                    both.send("t", bytes);
                    get_match_cnt(both.handle(), "t");
                }
            });
        }
        ASSERT_TRUE(both.awaits("t", 1));
        std::thread second([&] { destroy_dds(both.handle()); });
        destroy_dds(both.handle());
        EXPECT_EQ(both.send("t", Bytes(1)), -1);
        EXPECT_EQ(get_match_cnt(both.handle(), "t"), 0);
        second.join();
        isOver = true;
        for (std::thread& user : users) {
            user.join();
        }
    }
}

ptrdiff_t openFiles() {
    return std::distance(std::filesystem::directory_iterator("/proc/self/fd"), {});
}

TEST(Life, GivesBackItsFilesAndPorts) {
    ptrdiff_t before = 0;
    for (int round = 0; round < 35; round++) { // more than there are pairs of ports to be found at
        Participant writer;
        Participant reader;
        writer.writes("t");
        reader.reads("t", Inbox::take<>);
        writer.start();
        reader.start();
        ASSERT_TRUE(writer.awaits("t", 1)) << round;
        ASSERT_EQ(writer.send("t", Bytes(1)), 0);
        ASSERT_TRUE(Inbox::of().holds(static_cast<size_t>(round) + 1));
        if (round == 0) {
            before = openFiles();
        }
        EXPECT_EQ(openFiles(), before) << round;
    }
}

// The library itself would look at the first four pairs of ports.
TEST(Life, TwentyTakePartInOneDomain) {
    std::deque<Participant> readers(19);
    for (Participant& reader : readers) {
        reader.reads("t", Inbox::take<>);
        reader.start();
    }
    Participant writer;
    writer.writes("t");
    writer.start();
    ASSERT_TRUE(writer.awaits("t", 19));
    ASSERT_EQ(writer.send("t", Bytes(1)), 0);
    EXPECT_TRUE(Inbox::of().holds(19));
}

TEST(Life, ListensAtAFreePairOfPortsOrDoesNotStart) {
    std::deque<UdpPeer> taken;
    for (int32_t pair = 0; pair < 32; pair++) { // one port of a pair is enough
        ASSERT_TRUE(taken.emplace_back(discoveryPort(pair) + pair % 2).isBound()) << pair;
    }
    Participant none;
    none.writes("t");
    EXPECT_FALSE(dds_start(none.handle()));
    taken.pop_back();
    Participant one;
    one.writes("t");
    one.start();
    EXPECT_FALSE(UdpPeer(discoveryPort(31)).isBound());
    EXPECT_FALSE(UdpPeer(discoveryPort(31) + 1).isBound());
}

// ---- what the process shows of it

TEST_F(Pair, HasSocketsOnLoopbackAloneAndNoSharedMemory) {
    const int32_t first = discoveryPort(0);
    bool isInherited[1024] = {};
    for (int fd = 0; fd < 1024; fd++) {
        isInherited[fd] = fcntl(fd, F_GETFD) >= 0;
    }
    connect(Inbox::take<>);
    int wellKnown = 0;
    int sockets = 0;
    for (int fd = 0; fd < 1024; fd++) {
        sockaddr_in address{};
        socklen_t size = sizeof address;
        if (isInherited[fd] || getsockname(fd, reinterpret_cast<sockaddr*>(&address), &size) != 0) {
            continue;
        }
        const int32_t port = ntohs(address.sin_port);
        if (address.sin_family == AF_INET && port == 0) {
            continue; // The library asks for the address of an interface by it, and leaves it open.
        }
        int type = 0;
        size = sizeof type;
        getsockopt(fd, SOL_SOCKET, SO_TYPE, &type, &size);
        ASSERT_EQ(address.sin_family, AF_INET);
        EXPECT_EQ(type, SOCK_DGRAM);
        EXPECT_EQ(address.sin_addr.s_addr, htonl(INADDR_LOOPBACK));
        wellKnown += port >= first && port < first + 2 * 32 ? 1 : 0;
        sockets++;
    }
    EXPECT_EQ(sockets, 2 * 3); // discovery, samples, one for sending
    EXPECT_EQ(wellKnown, 2 * 2);
    EXPECT_THAT(readFile("/proc/self/maps"), Not(HasSubstr("/dev/shm")));
    // 239.255.0.1, where discovery by multicast listens; as the kernel prints it
    EXPECT_THAT(readFile("/proc/net/igmp"), Not(HasSubstr("0100FFEF")));
}

TEST_F(Pair, LeavesSignalsToTheMainThreadAndStandardOutputAlone) {
    testing::internal::CaptureStdout();
    testing::internal::CaptureStderr();
    connect(Inbox::take<>);
    const uint64_t stopSignals = 1U << (SIGINT - 1) | 1U << (SIGQUIT - 1) | 1U << (SIGTERM - 1);
    int others = 0;
    for (const auto& task : std::filesystem::directory_iterator("/proc/self/task")) {
        const std::string status = readFile(task.path().string() + "/status");
        const uint64_t blocked = std::stoull(status.substr(status.find("SigBlk:") + 7), nullptr, 16);
        const bool isMain = task.path().filename() == std::to_string(getpid());
        others += isMain ? 0 : 1;
        // Those of a sanitizer block everything.
        EXPECT_EQ(blocked & stopSignals, isMain ? 0 : stopSignals) << status;
    }
    EXPECT_GE(others, 4);
    EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
    EXPECT_EQ(testing::internal::GetCapturedStderr(), "");
}

// The folder tells of every file in it that is opened.
TEST(Profiles, AreNotLoaded) {
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
    Participant both;
    both.writes("t");
    both.reads("t", Inbox::take<>);
    both.start();
    ASSERT_TRUE(both.awaits("t", 1));
    ASSERT_EQ(both.send("t", Bytes(1)), 0);
    EXPECT_TRUE(Inbox::of().holds(1));
    alignas(inotify_event) char event[sizeof(inotify_event) + NAME_MAX + 1] = {};
    EXPECT_EQ(read(opened, event, sizeof event), -1) << event + sizeof(inotify_event);
    readFile("profiles.xml"); // the watch sees it
    EXPECT_GT(read(opened, event, sizeof event), 0);
    close(opened);
}

} // namespace
