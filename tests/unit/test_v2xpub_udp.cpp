#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "journal_entries.h"
#include "platform_util.h"
#include "udp_peer.h"
#include "v2x/v2xwatch.h"

namespace {

constexpr size_t DATAGRAM_MAX = INT16_MAX;

std::atomic<bool> g_isHeld{false};

// Sends each datagram back and waits while g_isHeld is set.
void Answer(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen) {
    v2xpub_UdpSocketRespSend(handle, static_cast<v2xpub_UdpSocketDataHead_t*>(p_data), addr, addrLen);
    while (g_isHeld) {
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
}

v2xpub_UdpSocketDataHead_t HeadOf(Bytes& bytes) {
    return {static_cast<int16_t>(bytes.size()), bytes.data()};
}

v2xpub_UdpSocketStats_t StatsOf(V2X_UDPSOCKHANDLE handle) {
    v2xpub_UdpSocketStats_t stats{};
    EXPECT_EQ(v2xpub_UdpSocketGetStats(handle, &stats), 0);
    return stats;
}

class Udp : public testing::Test {
protected:
    Udp() { m_log.Forget(); }
    ~Udp() override {
        g_isHeld = false;
        EXPECT_EQ(v2xpub_UdpSocketExit(m_socket), 0);
    }

    v2xpub_SocketInitPara_t ServerPara(const char* name) const { return SocketPara(name, true, m_port, Answer); }
    void OpenServer(int32_t rcvBufBytes = 0) { Open(ServerPara("server"), rcvBufBytes); }
    void OpenClient() { Open(SocketPara("client", false, m_port, nullptr), 0); }
    void Open(const v2xpub_SocketInitPara_t& para, int32_t rcvBufBytes) {
        ASSERT_EQ(v2xpub_UdpSocketInit(&m_socket, &para, rcvBufBytes), 0);
    }

    static inline LogFile m_log{"UDPA"};
    V2X_UDPSOCKHANDLE m_socket = nullptr;
    UdpPeer m_peer;
    uint16_t m_port = UdpPeer().port(); // free a moment ago
};

TEST_F(Udp, DeliversWholeDatagramsInOrderAndDropsTooLongOnes) {
    constexpr size_t SIZES[] = {0, 1, DATAGRAM_MAX, DATAGRAM_MAX + 1, 3, 65507, 2, 7, 5, 4};
    OpenServer();
    g_isHeld = true; // the other datagrams wait, so that the thread receives several at once
    ASSERT_TRUE(m_peer.sendTo(m_port, {}));
    EXPECT_EQ(m_peer.receive(), Bytes());
    for (const size_t size : SIZES) {
        ASSERT_TRUE(m_peer.sendTo(m_port, pattern(size, static_cast<uint8_t>(size))));
    }
    g_isHeld = false;
    for (const size_t size : SIZES) {
        if (size <= DATAGRAM_MAX) {
            EXPECT_EQ(m_peer.receive(), pattern(size, static_cast<uint8_t>(size))) << size;
        }
    }
    ASSERT_TRUE(eventually([&] { return StatsOf(m_socket).sent == 9; }));
    EXPECT_EQ(StatsOf(m_socket).received, 9U);
    EXPECT_EQ(StatsOf(m_socket).tooLong, 2U);
}

TEST_F(Udp, CountsDropsOfTheKernel) {
    OpenServer(4096);
    uint64_t sent = 0;
    for (uint64_t round = 1; round <= 2; ++round) {
        g_isHeld = true;
        for (int i = 0; i < 2000; ++i, ++sent) {
            ASSERT_TRUE(m_peer.sendTo(m_port, pattern(100, 1)));
        }
        g_isHeld = false;
        // Drops after the last received datagram are counted, too.
        EXPECT_TRUE(eventually([&] {
            const v2xpub_UdpSocketStats_t stats = StatsOf(m_socket);
            return stats.received + stats.kernelDrops == sent;
        }));
        EXPECT_GT(StatsOf(m_socket).kernelDrops, 1500 * round);
    }
    EXPECT_GE(m_log.Count("socket server: receive buffer full, the kernel dropped"), 1);
}

TEST_F(Udp, ReceiveThreadIsStuckInAHangingCallbackButNotInSilence) {
    constexpr uint64_t LIMIT = v2x_watchedThread::LIMIT;
    constexpr uint64_t START = 1;
    OpenServer();
    g_isHeld = true;
    ASSERT_TRUE(m_peer.sendTo(m_port, Bytes(1)));
    ASSERT_TRUE(m_peer.receive());
    EXPECT_THAT(v2x_watchedThread::FindStuck(START), testing::IsEmpty());
    EXPECT_THAT(v2x_watchedThread::FindStuck(START + LIMIT), testing::ElementsAre("server"));
    g_isHeld = false;
    EXPECT_TRUE(eventually([&] { return v2x_watchedThread::FindStuck(START + LIMIT).empty(); }));
    EXPECT_THAT(v2x_watchedThread::FindStuck(START + 1000 * LIMIT), testing::IsEmpty());
}

TEST_F(Udp, ClosesWhileTrafficFlows) {
    std::atomic<bool> done{false};
    std::thread sender([&] {
        while (!done) {
            m_peer.sendTo(m_port, Bytes(10));
        }
    });
    const v2xpub_SocketInitPara_t para = ServerPara("server");
    for (int i = 0; i < 50; ++i) {
        V2X_UDPSOCKHANDLE handle = nullptr;
        EXPECT_TRUE(eventually([&] { return v2xpub_UdpSocketInit(&handle, &para, 0) == 0; }));
        EXPECT_TRUE(eventually([&] { return StatsOf(handle).received > 0; }));
        EXPECT_EQ(v2xpub_UdpSocketExit(handle), 0);
    }
    done = true;
    sender.join();
}

TEST_F(Udp, CountsRejectedSendsAndLogsOneLine) {
    OpenClient();
    ASSERT_EQ(v2xpub_UdpSocketSetSendAddr(m_socket, "127.255.255.255", 9), 0); // broadcast: the kernel rejects it
    Bytes bytes(1);
    const v2xpub_UdpSocketDataHead_t head = HeadOf(bytes);
    for (int i = 0; i < 100; ++i) {
        EXPECT_EQ(v2xpub_UdpSocketReqSend(m_socket, &head), -3);
    }
    EXPECT_EQ(StatsOf(m_socket).sendErrors, 100U);
    EXPECT_EQ(StatsOf(m_socket).sent, 0U);
    EXPECT_EQ(m_log.Count("socket client: cannot send to 127.255.255.255:9"), 1);
}

TEST_F(Udp, WaitingReceiveDropsTooLongDatagrams) {
    OpenClient();
    Bytes buffer(100);
    const auto receive = [&](int32_t timeoutMs) {
        v2xpub_UdpSocketDataHead_t head = HeadOf(buffer);
        const int32_t result = v2xpub_UdpSocketRecv(m_socket, &head, timeoutMs);
        return std::pair(result, head.m_curMsgLen);
    };
    EXPECT_EQ(receive(0), std::pair(1, int16_t{100}));
    ASSERT_TRUE(m_peer.sendTo(m_port, pattern(101, 1)));
    ASSERT_TRUE(m_peer.sendTo(m_port, pattern(100, 2)));
    EXPECT_EQ(receive(60'000), std::pair(0, int16_t{100}));
    EXPECT_EQ(buffer, pattern(100, 2));
    EXPECT_EQ(StatsOf(m_socket).tooLong, 1U);
    EXPECT_EQ(StatsOf(m_socket).received, 1U);
}

// The socket's parameters with 127.0.0.1 as the only sender.
v2xpub_SocketInitPara_t Restrict(v2xpub_SocketInitPara_t para) {
    para.m_senders.count = 1;
    EXPECT_EQ(v2xpub_ParseAddressBlock("127.0.0.1", para.m_senders.blocks), 0);
    para.m_peer = "learner";
    para.m_sendersKey = "OnlyFrom";
    return para;
}

TEST_F(Udp, ServerDropsCountsAndLogsDatagramsOfOtherSenders) {
    Open(Restrict(ServerPara("server")), 0);
    UdpPeer other(0, INADDR_LOOPBACK + 1);
    for (const size_t size : {size_t{1}, size_t{0}, DATAGRAM_MAX + 1}) {
        ASSERT_TRUE(other.sendTo(m_port, Bytes(size)));
    }
    ASSERT_TRUE(m_peer.sendTo(m_port, pattern(5, 1)));
    EXPECT_EQ(m_peer.receive(), pattern(5, 1));
    EXPECT_FALSE(other.receive(0)) << "a refused datagram was answered";
    const v2xpub_UdpSocketStats_t stats = StatsOf(m_socket);
    EXPECT_EQ(stats.refusedSender, 3U);
    EXPECT_EQ(stats.received, 1U);
    EXPECT_EQ(stats.tooLong, 0U);
    EXPECT_EQ(m_log.Count("learner: datagram from 127.0.0.2 refused, not in OnlyFrom (1 so far)"), 1);
    EXPECT_EQ(m_log.Count("refused"), 1);
}

TEST_F(Udp, WaitingReceiveDropsDatagramsOfOtherSenders) {
    Open(Restrict(SocketPara("client", false, m_port, nullptr)), 0);
    const UdpPeer other(0, INADDR_LOOPBACK + 1);
    Bytes buffer(100);
    v2xpub_UdpSocketDataHead_t head = HeadOf(buffer);
    ASSERT_TRUE(other.sendTo(m_port, Bytes(1)));
    EXPECT_EQ(v2xpub_UdpSocketRecv(m_socket, &head, 0), 1);
    EXPECT_EQ(StatsOf(m_socket).refusedSender, 1U);
    ASSERT_TRUE(other.sendTo(m_port, Bytes(2)));
    ASSERT_TRUE(m_peer.sendTo(m_port, Bytes(3)));
    EXPECT_EQ(v2xpub_UdpSocketRecv(m_socket, &head, 60'000), 0);
    EXPECT_EQ(head.m_curMsgLen, 3);
    EXPECT_EQ(StatsOf(m_socket).refusedSender, 2U);
    EXPECT_EQ(StatsOf(m_socket).received, 1U);
}

TEST_F(Udp, CopiesDeliveredAndSentDatagramsToTheJournal) {
    Open(Restrict(ServerPara("server with a name of 31 bytes")), 0);
    const v2xpub_SocketInitPara_t para = SocketPara("client", false, 0, nullptr); // the kernel chooses the port
    V2X_UDPSOCKHANDLE client = nullptr;
    ASSERT_EQ(v2xpub_UdpSocketInit(&client, &para, 0), 0);
    ASSERT_EQ(v2xpub_UdpSocketSetSendAddr(client, "127.0.0.1", m_port), 0);
    Bytes bytes = pattern(5, 1);
    v2xpub_UdpSocketDataHead_t head = HeadOf(bytes);
    v2x_journal::Select(v2x_journalKind::datagram, true);
    ASSERT_TRUE(UdpPeer(0, INADDR_LOOPBACK + 1).sendTo(m_port, Bytes(1))); // refused
    ASSERT_EQ(v2xpub_UdpSocketReqSend(client, &head), 0);
    ASSERT_EQ(v2xpub_UdpSocketRecv(client, &head, 60'000), 0);
    v2xpub_UdpSocketExit(client);
    v2xpub_UdpSocketExit(std::exchange(m_socket, nullptr)); // ends the thread that writes the last entry
    v2x_journal::Select(v2x_journalKind::datagram, false);
    uint16_t port = 0;
    auto taps = takeEntries<v2xpub_tap_t>([&](const v2xpub_tap_t& tap, const Bytes& datagram) {
        EXPECT_NEAR(static_cast<double>(tap.time), static_cast<double>(v2xpub_CommGetCurrentTime64()), 6e7);
        EXPECT_EQ(datagram, pattern(5, 1));
        EXPECT_EQ(tap.local.ip & tap.remote.ip, INADDR_LOOPBACK);
        const bool isClient = tap.local.port != m_port;
        port = isClient ? tap.local.port : port;
        EXPECT_EQ(isClient ? tap.remote.port : tap.local.port, m_port);
        return tap.socket + std::string(tap.isSent ? " sent" : " received") + (tap.remote.port != 0 ? "" : " nowhere");
    });
    std::ranges::sort(taps); // two threads write
    EXPECT_THAT(taps, testing::ElementsAre("client received", "client sent", "server with a name of  received",
                                           "server with a name of  sent"));
    EXPECT_NE(port, 0);
}

TEST_F(Udp, BoundsFieldsWithoutNulAndRejectsServerWithoutPort) {
    v2xpub_SocketInitPara_t para = ServerPara("");
    std::fill_n(para.m_sockName, sizeof para.m_sockName, 'n');
    std::fill_n(para.m_localIP, sizeof para.m_localIP, '1');
    EXPECT_EQ(v2xpub_UdpSocketInit(&m_socket, &para, 0), -2);
    const std::string name(sizeof para.m_sockName, 'n');
    EXPECT_EQ(m_log.Count("socket " + name + " at " + std::string(sizeof para.m_localIP, '1') + ":"), 1);
    para = ServerPara("server");
    para.m_svrPort = 0;
    EXPECT_EQ(v2xpub_UdpSocketInit(&m_socket, &para, 0), -2);
    EXPECT_EQ(m_socket, nullptr);
}

TEST_F(Udp, RejectsInvalidArguments) {
    OpenClient();
    Bytes bytes(8);
    v2xpub_UdpSocketDataHead_t good = HeadOf(bytes);
    v2xpub_UdpSocketDataHead_t negative{-1, bytes.data()};
    v2xpub_UdpSocketDataHead_t noData{8, nullptr};
    EXPECT_EQ(v2xpub_UdpSocketReqSend(m_socket, &good), -2) << "no destination";
    ASSERT_EQ(v2xpub_UdpSocketSetSendAddr(m_socket, "127.0.0.1", m_peer.port()), 0);
    const int32_t results[] = {
        v2xpub_UdpSocketSetSendAddr(m_socket, "localhost", 1),
        v2xpub_UdpSocketReqSend(m_socket, &negative),
        v2xpub_UdpSocketReqSend(m_socket, &noData),
        v2xpub_UdpSocketRecv(m_socket, &negative, 0),
    };
    EXPECT_THAT(results, testing::Each(-2));
    EXPECT_FALSE(m_peer.receive(0)) << "a rejected message was sent";
}

} // namespace
