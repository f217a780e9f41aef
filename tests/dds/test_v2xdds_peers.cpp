// The DDS library between processes: peers that stop, end or are foreign.
#include <fastdds/rtps/RTPSDomain.h>
#include <fastdds/rtps/attributes/WriterAttributes.h>
#include <fastdds/rtps/history/WriterHistory.h>
#include <fastdds/rtps/participant/RTPSParticipant.h>
#include <fastdds/rtps/writer/RTPSWriter.h>
#include <fastrtps/qos/WriterQos.h>
#include <gmock/gmock.h>
#include <sys/resource.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <csignal>
#include <optional>
#include <thread>

#include "counts.h"
#include "dds/dds_test.h"
#include "udp_peer.h"
#include "v2xdds_qos.h"
#include "v2xdds_transport.h"

namespace {

// What makes Cyclone DDS stay on loop-back and look for its peers there one by one.
const std::string CYCLONE_ON_LOOPBACK =
    "CYCLONEDDS_URI=<CycloneDDS><Domain><General><Interfaces><NetworkInterface address=\"127.0.0.1\" "
    "multicast=\"false\"/></Interfaces><AllowMulticast>false</AllowMulticast></General><Discovery>"
    "<ParticipantIndex>auto</ParticipantIndex><MaxAutoParticipantIndex>31</MaxAutoParticipantIndex>"
    "<Peers><Peer address=\"127.0.0.1\"/></Peers></Discovery></Domain></CycloneDDS>";

using testing::Contains;
using testing::ElementsAre;
using testing::ElementsAreArray;
namespace rtps = eprosima::fastrtps::rtps;
using Clock = std::chrono::steady_clock;

const std::string REAL_TIME = "2";

TEST(Peers, StoppedReaderDelaysNoSender) {
    Participant here;
    here.writes("all", DDS_HISTORY_ALL);
    here.writes("now", DDS_HISTORY_REAL_TIME);
    here.start();
    Peer all("dds_peer", {"0", "read", "all"});
    Peer now("dds_peer", {REAL_TIME, "read", "now"});
    ASSERT_TRUE(here.awaits("all", 1) && here.awaits("now", 1));
    ASSERT_TRUE(all.process().stop() && now.process().stop());
    // "All" keeps 4096 samples for a reader that is still matched, and then takes none.
    for (int i = 0; i < 4; i++) {
        ASSERT_EQ(here.send("all", pattern(1048576, 1)), 0);
    }
    int sent = 0;
    for (const auto start = Clock::now(); Clock::now() - start < std::chrono::seconds(2); sent++) {
        ASSERT_EQ(here.send("now", Bytes(2048)), 0);
        const int32_t result = here.send("all", Bytes(2048));
        // A reader that is not matched any more, its lease over, is not waited for; it is counted off a moment later.
        ASSERT_TRUE(result == -2 || eventually([&] { return get_match_cnt(here.handle(), "all") == 0; }, 1000));
    }
    EXPECT_GT(sent, 100); // no wait for a reader: each would last as long as it stands still, or 100 ms
    // Its lease over, the reader counts no more, and "all" goes on.
    EXPECT_TRUE(here.awaits("all", 0));
    EXPECT_EQ(here.send("all", Bytes(1)), 0);
    // What goes on running finds its way back.
    now.process().signal(SIGCONT);
    EXPECT_TRUE(eventually([&] {
        here.send("now", Bytes(1));
        const auto lines = now.lines();
        return !lines.empty() && lines.back() == describe("", 1);
    }));
}

TEST(Peers, ShortlyStoppedReaderLosesNothingThatIsKept) {
    Participant here;
    here.writes("all", DDS_HISTORY_ALL);
    here.start();
    Peer peer("dds_peer", {"0", "read", "all"});
    ASSERT_TRUE(here.awaits("all", 1));
    ASSERT_TRUE(peer.process().stop());
    std::vector<std::string> expected;
    for (uint8_t seed = 0; seed < 200; seed++) {
        const auto pieces = piecesOf(pattern(10240, seed));
        expected.insert(expected.end(), pieces.begin(), pieces.end());
        ASSERT_EQ(here.send("all", pattern(10240, seed)), 0);
    }
    peer.process().signal(SIGCONT);
    EXPECT_TRUE(eventually([&] { return peer.lines().size() >= expected.size(); }));
    EXPECT_THAT(peer.lines(), ElementsAreArray(expected));
}

// No file or socket can be opened meanwhile.
class NoDescriptors {
public:
    NoDescriptors() {
        getrlimit(RLIMIT_NOFILE, &m_before);
        const rlimit none = {0, m_before.rlim_max};
        setrlimit(RLIMIT_NOFILE, &none);
    }
    ~NoDescriptors() { setrlimit(RLIMIT_NOFILE, &m_before); }
    NoDescriptors(const NoDescriptors&) = delete;
    NoDescriptors& operator=(const NoDescriptors&) = delete;

private:
    rlimit m_before{};
};

// It is found again, but none of its topics: the participant here joins anew, however many send, and as soon as it can.
TEST(Peers, StoppedPeerWhoseTopicsStayAwayIsFoundAnew) {
    const auto joinedAnew = [] { return countsOf("dds")["joined_anew"]; };
    for (const bool isWithoutSockets : {false, true}) {
        SCOPED_TRACE(isWithoutSockets);
        const uint64_t joinedBefore = joinedAnew();
        Participant here;
        here.reads("flood", Inbox::take<>);
        here.writes("in");
        here.start();
        Peer peer("dds_peer", {REAL_TIME, "mute", "in", "flood"});
        ASSERT_TRUE(here.awaits("in", 1) && Inbox::of().holds(Inbox::of().all().size() + 1));
        ASSERT_TRUE(peer.process().stop());
        ASSERT_TRUE(here.awaits("in", 0));
        EXPECT_EQ(joinedAnew(), joinedBefore);
        const size_t received = Inbox::of().all().size();
        std::optional<NoDescriptors> none;
        if (isWithoutSockets) {
            none.emplace();
        }
        const auto continued = Clock::now();
        peer.process().signal(SIGCONT);
        {
            std::atomic<bool> isOver{false};
            std::vector<std::thread> senders;
            for (int i = 0; i < 4; i++) {
                senders.emplace_back([&] {
                    while (!isOver) {
                        here.send("in", Bytes(1));
                    }
                });
            }
            EXPECT_TRUE(eventually([&] { return joinedAnew() == joinedBefore + 1; }));
            isOver = true;
            std::ranges::for_each(senders, &std::thread::join);
        }
        EXPECT_GE(Clock::now() - continued, std::chrono::seconds(4)); // time for its topics to come
        if (none) {
            EXPECT_FALSE(eventually([&] { return get_match_cnt(here.handle(), "in") != 0; }, 1500));
            EXPECT_EQ(here.send("in", Bytes(7)), -1);
            none.reset();
        }
        EXPECT_TRUE(here.awaits("in", 1));
        EXPECT_EQ(here.send("in", Bytes(7)), 0);
        const std::string last = piecesOf(Bytes(7)).back();
        EXPECT_TRUE(eventually([&] { return testing::Value(peer.lines(), Contains(last)); })) << peer.errors();
        EXPECT_TRUE(Inbox::of().holds(received + 1));
        EXPECT_EQ(joinedAnew(), joinedBefore + 1);
    }
}

// Those that have come since the last call, at one of the ports at which participants look for peers.
int goodByes(UdpPeer& discovery) {
    // RTPS 2.3, 9.6.3: PID_STATUS_INFO, 4 bytes, unregistered and disposed of.
    const Bytes status = hex("7100 0400 00000003");
    int count = 0;
    while (const std::optional<Bytes> bytes = discovery.receive(0)) {
        count += std::search(bytes->begin(), bytes->end(), status.begin(), status.end()) != bytes->end() ? 1 : 0;
    }
    return count;
}

// From main, from a callback, and from a callback for which main waits in destroy_dds.
TEST(Process, ExitsCleanlyWhileItSendsAndReceives) {
    UdpPeer discovery(discoveryPort(31));
    ASSERT_TRUE(discovery.isBound());
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
    for (int round = 0; round < 9; round++) {
        const std::string role = std::array{"exit", "leave", "destroy"}[round % 3];
        SCOPED_TRACE(role);
        Peer peer("dds_peer", {REAL_TIME, role, "in", "flood"});
        EXPECT_EQ(peer.process().wait(20000), role == "exit" ? 0 : 7);
        EXPECT_EQ(peer.errors(), "");
        EXPECT_FALSE(peer.lines().empty());
        // Without a good-bye its peers would miss it when its lease is over.
        EXPECT_TRUE(eventually([&] { return goodByes(discovery) == 1; }));
    }
    isOver = true;
    sender.join();
}

TEST(Foreign, CycloneReadsWhatIsSent) {
    const std::vector<size_t> sizes = {1, 1023, 1024, 1025, 2048, 20479};
    Participant here;
    here.writes("t");
    here.start();
    Peer peer("cyclone_peer", {"read", "t"}, {CYCLONE_ON_LOOPBACK});
    // It takes what is sent once it knows the writer, which may be after the writer knows it.
    ASSERT_TRUE(eventually([&] {
        here.send("t", Bytes(2));
        return !peer.lines().empty();
    })) << peer.errors();
    std::vector<std::string> expected;
    for (const size_t size : sizes) {
        const auto pieces = piecesOf(pattern(size, static_cast<uint8_t>(size)));
        expected.insert(expected.end(), pieces.begin(), pieces.end());
        ASSERT_EQ(here.send("t", pattern(size, static_cast<uint8_t>(size))), 0);
    }
    EXPECT_TRUE(eventually([&] { return peer.lines().back() == expected.back(); }));
    auto lines = peer.lines();
    std::erase(lines, describe("\0", 2));
    EXPECT_THAT(lines, ElementsAreArray(expected));
}

// Samples of a foreign writer come in the same pieces; an empty one is none, and one that is too long is passed over.
TEST(Foreign, CycloneSamplesArriveInPieces) {
    const std::vector<size_t> sizes = {1, 0, 1024, 1025, 20479, 1048576, 1048577, 3};
    Participant here;
    here.reads("t", Inbox::take<>);
    here.start();
    std::vector<std::string> arguments = {"write", "t"};
    std::vector<std::string> expected;
    for (size_t i = 0; i < sizes.size(); i++) {
        arguments.push_back(std::to_string(sizes[i]));
        const auto pieces = piecesOf(pattern(sizes[i] <= 1048576 ? sizes[i] : 0, static_cast<uint8_t>(i)));
        expected.insert(expected.end(), pieces.begin(), pieces.end());
    }
    Peer peer("cyclone_peer", arguments, {CYCLONE_ON_LOOPBACK});
    EXPECT_TRUE(Inbox::of().holds(expected.size())) << peer.errors();
    EXPECT_THAT(Inbox::of().all(), ElementsAreArray(expected));
}

// A writer below the types: a sample is what it is given.
class RawWriter {
public:
    explicit RawWriter(const char* topic)
        : m_participant(rtps::RTPSDomain::createParticipant(static_cast<uint32_t>(testDomain()),
                                                            v2xdds_ParticipantAttributes("127.0.0.1", m_number))) {
        rtps::WriterAttributes attributes; // which keep what was sent for a reader that comes
        attributes.endpoint.durabilityKind = rtps::TRANSIENT_LOCAL;
        attributes.times.heartbeatPeriod = {0, 100'000'000};
        m_writer = rtps::RTPSDomain::createRTPSWriter(m_participant, attributes, &m_history);
        eprosima::fastrtps::WriterQos qos;
        qos.m_durability.kind = eprosima::fastrtps::TRANSIENT_LOCAL_DURABILITY_QOS;
        m_participant->registerWriter(m_writer, v2xdds_TopicAttributes(topic), qos);
    }
    ~RawWriter() { rtps::RTPSDomain::removeRTPSParticipant(m_participant); }
    RawWriter(const RawWriter&) = delete;
    RawWriter& operator=(const RawWriter&) = delete;

    void send(const Bytes& sample) {
        const auto size = static_cast<uint32_t>(sample.size());
        rtps::CacheChange_t* const change = m_writer->new_change([size] { return size; }, rtps::ALIVE);
        std::copy(sample.begin(), sample.end(), change->serializedPayload.data);
        change->serializedPayload.length = size;
        m_history.add_change(change);
    }

private:
    const v2xdds_number m_number{"127.0.0.1", testDomain()};
    rtps::WriterHistory m_history{{rtps::PREALLOCATED_WITH_REALLOC_MEMORY_MODE, 64, 1, 100}};
    rtps::RTPSParticipant* const m_participant;
    rtps::RTPSWriter* m_writer = nullptr;
};

TEST(Foreign, SamplesOfAnotherEncodingAreRefusedAndTheNextOnesTaken) {
    Participant here;
    here.reads("t", Inbox::take<>, DDS_HISTORY_ALL);
    here.start();
    RawWriter foreign("t");
    for (const Bytes& sample : {Bytes{0, 3, 0, 0, 1, 0, 0, 0, 1}, Bytes{0, 1, 0, 0, 1, 0, 0, 0, 42},
                                Bytes{0, 1, 0, 0, 255, 255, 255, 255, 1}, Bytes{0, 0, 0, 0, 0, 0, 0, 1, 43}}) {
        foreign.send(sample);
    }
    EXPECT_TRUE(Inbox::of().holds(2));
    EXPECT_THAT(Inbox::of().all(), ElementsAre(describe("*", 1), describe("+", 1)));
    EXPECT_EQ(countsOf("dds")["refused"], 2U);
}

} // namespace
