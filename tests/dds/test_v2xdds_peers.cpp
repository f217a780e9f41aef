// The DDS library across processes: peers that stall, end or run a foreign DDS.
#include <array>
#include <chrono>
#include <csignal>
#include <cstring>
#include <thread>

#include "bare_dds.h"
#include "counts.h"
#include "dds/dds_test.h"

namespace {

using testing::ElementsAreArray;
using Peers = DdsTest;
using Foreign = DdsTest;

TEST_F(Peers, StalledReadersStayMatchedAndDelayNoSender) {
    Participant here({{"all", nullptr, DDS_HISTORY_ALL}, {"now"}});
    Peer all("dds_peer", {"0", "read", "all"});
    Peer now("dds_peer", {"2", "read", "now"});
    ASSERT_TRUE(here.awaits("all", 1) && here.awaits("now", 1));
    ASSERT_TRUE(all.process().stop() && now.process().stop());
    const auto end = std::chrono::steady_clock::now() + std::chrono::seconds(4); // a lease of 3 s would expire
    std::vector<std::string> expected;                                           // 4096 pieces, as "all" keeps
    for (uint8_t seed = 0; seed < 4; seed++) {
        const Bytes payload = pattern(1048576, seed);
        addPieces(expected, payload);
        ASSERT_EQ(here.send("all", payload), 0);
    }
    int sent = 0;
    for (; std::chrono::steady_clock::now() < end; sent++) {
        ASSERT_EQ(here.send("now", Bytes(2048)), 0);
        ASSERT_EQ(here.send("all", Bytes(2048)), -2);
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    EXPECT_GT(sent, 100); // 40 if each send waited for the writer's 100 ms
    all.process().signal(SIGCONT);
    EXPECT_TRUE(eventually([&] { return all.lines().size() >= expected.size(); }));
    EXPECT_THAT(all.lines(), ElementsAreArray(expected));
    EXPECT_EQ(here.send("all", Bytes(2048)), 0);
}

// From main, from a callback, and from a callback while main waits in destroy_dds.
TEST_F(Peers, ExitCleanlyWhileTheySendAndReceive) {
    Participant here({{"flood", [](void*, unsigned int) {}}, {"in"}});
    for (int round = 0; round < 9; round++) {
        const std::string role = std::array{"exit", "leave", "destroy"}[round % 3];
        SCOPED_TRACE(role);
        Peer peer("dds_peer", {"2", role, "in", "flood"});
        int status = -1;
        while (status == -1) {
            here.send("in", Bytes(3000));
            status = peer.process().wait(1);
        }
        EXPECT_EQ(status, role == "exit" ? 0 : 7);
        EXPECT_EQ(peer.errors(), "");
        EXPECT_FALSE(peer.lines().empty());
        EXPECT_TRUE(here.awaits("in", 0, 5000)) << "without a good-bye it stays matched for 20 s";
    }
}

// Each piece of a foreign sample is one call; an empty sample makes no call, and one that is too long is discarded.
TEST_F(Foreign, CycloneExchangesSamplesBothWays) {
    const TempFolder folder;
    std::vector<std::string> arguments = {"down", "up", "0"};
    std::vector<std::string> expected;
    for (const size_t size : {1, 0, 1024, 1025, 20479, 1048576, 1048577, 3}) {
        const Bytes sample = pattern(size, static_cast<uint8_t>(arguments.size()));
        if (size <= 1048576) {
            addPieces(expected, sample);
        }
        arguments.push_back(folder.path() + "/" + std::to_string(size));
        writeFile(arguments.back(), {sample.begin(), sample.end()});
    }
    Participant here({{"down"}, {"up", Inbox::take}});
    Peer peer("cyclone_peer", arguments);
    Inbox::expect(expected);

    // Cyclone may know the writer later than the writer knows it, and receives nothing before.
    ASSERT_TRUE(eventually([&] {
        here.send("down", Bytes(2));
        return !peer.lines().empty();
    })) << peer.errors();
    expected.clear();
    for (const size_t size : {1, 1023, 1024, 1025, 2048, 20479}) {
        addPieces(expected, pattern(size, 1));
        ASSERT_EQ(here.send("down", pattern(size, 1)), 0);
    }
    EXPECT_TRUE(eventually([&] { return peer.lines().back() == expected.back(); }));
    auto lines = peer.lines();
    std::erase(lines, describe("\0", 2));
    EXPECT_THAT(lines, ElementsAreArray(expected));
}

// The sizes are multiples of four where it matters, since DDS pads samples. The fuzz target finds reads outside a
// sample.
TEST_F(Foreign, InvalidSamplesAreRejectedAndOthersDelivered) {
    const struct {
        Bytes sample;
        const char* octets; // null: invalid
    } rows[] = {
        {{0, 1, 0, 0, 2, 0, 0, 0, 'a', 'b'}, "ab"},              // little-endian
        {{0, 3, 0, 0, 1, 0, 0, 0, 'x'}, nullptr},                // a parameter list
        {{0, 0, 0, 0, 0, 0, 0, 2, 'c', 'd'}, "cd"},              // big-endian
        {{1, 1, 0, 0, 1, 0, 0, 0, 'x'}, nullptr},                // another encapsulation
        {{0, 1, 0, 3, 1, 0, 0, 0, 'e', 0, 0, 0}, "e"},           // padded
        {{0, 1, 0, 0, 5, 0, 0, 0, 'x', 'x', 'x', 'x'}, nullptr}, // one octet short
        {{0, 1, 0, 0, 255, 255, 255, 255, 'x'}, nullptr},        // maximum length
        {{0, 1, 0, 0}, nullptr},                                 // no length
        {{0, 1, 0, 0, 1, 0, 0, 0, 'f'}, "f"},
    };
    const uint64_t before = countsOf("dds")["wrong_type"];
    Participant here({{"t", Inbox::take}});
    BareWriter foreign(testDomain(), "t");
    ASSERT_TRUE(eventually([&] { return foreign.countReaders() == 1; }));
    std::vector<std::string> expected;
    for (const auto& row : rows) {
        ASSERT_TRUE(foreign.send(row.sample));
        if (row.octets != nullptr) {
            expected.push_back(describe(row.octets, strlen(row.octets)));
        }
    }
    Inbox::expect(expected);
    EXPECT_EQ(countsOf("dds")["wrong_type"], before + std::size(rows) - expected.size());
}

} // namespace
