#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <atomic>

#include "platform_util.h"
#include "udp_peer.h"

namespace {

LogFile& Log() {
    static LogFile file{"UDPA"};
    return file;
}

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
    Udp() { Log().Forget(); }
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

    V2X_UDPSOCKHANDLE m_socket = nullptr;
    UdpPeer m_peer;
    uint16_t m_port = UdpPeer().port(); // free a moment ago
};

TEST_F(Udp, DeliversWholeDatagramsAndDropsTooLongOnes) {
    OpenServer();
    for (const size_t size : {size_t{0}, size_t{1}, DATAGRAM_MAX, DATAGRAM_MAX + 1, size_t{65507}, size_t{2}}) {
        const Bytes bytes = pattern(size, 1);
        ASSERT_TRUE(m_peer.sendTo(m_port, bytes));
        if (size <= DATAGRAM_MAX) {
            EXPECT_EQ(m_peer.receive(), bytes) << size;
        }
    }
    ASSERT_TRUE(eventually([&] { return StatsOf(m_socket).sent == 4; }));
    EXPECT_EQ(StatsOf(m_socket).received, 4U);
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
    EXPECT_GE(Log().Count({"server", "the kernel dropped"}), 1);
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

TEST_F(Udp, NamesThePortInUse) {
    OpenServer(); // ports are shared only when both sockets request it
    const v2xpub_SocketInitPara_t para = ServerPara("second");
    const auto untouched = reinterpret_cast<V2X_UDPSOCKHANDLE>(this);
    V2X_UDPSOCKHANDLE handle = untouched;
    EXPECT_EQ(v2xpub_UdpSocketInit(&handle, &para, 0), -3);
    EXPECT_EQ(handle, untouched);
    const std::string endpoint = "127.0.0.1:" + std::to_string(m_port);
    EXPECT_EQ(Log().Count({"second", endpoint, "in use"}), 1);
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
    ASSERT_EQ(v2xpub_UdpSocketSetSendAddr(m_socket, "127.0.0.1", m_peer.port()), 0);
    EXPECT_EQ(v2xpub_UdpSocketReqSend(m_socket, &head), 0);
    EXPECT_EQ(m_peer.receive(), bytes);
    EXPECT_EQ(Log().Count({"client", "cannot send to 127.255.255.255:9"}), 1);
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
    const auto before = std::chrono::steady_clock::now();
    EXPECT_EQ(receive(50), std::pair(1, int16_t{100}));
    EXPECT_GE(std::chrono::steady_clock::now() - before, std::chrono::milliseconds(50));

    ASSERT_TRUE(m_peer.sendTo(m_port, pattern(101, 1)));
    ASSERT_TRUE(m_peer.sendTo(m_port, Bytes()));
    ASSERT_TRUE(m_peer.sendTo(m_port, pattern(100, 2)));
    EXPECT_EQ(receive(60'000), std::pair(0, int16_t{0}));
    EXPECT_EQ(receive(60'000), std::pair(0, int16_t{100}));
    EXPECT_EQ(buffer, pattern(100, 2));
    EXPECT_EQ(StatsOf(m_socket).tooLong, 1U);
    EXPECT_EQ(StatsOf(m_socket).received, 2U);
}

TEST_F(Udp, RejectsInvalidSockets) {
    void (*const faults[])(v2xpub_SocketInitPara_t&) = {
        [](v2xpub_SocketInitPara_t& para) { para.m_svrPort = 0; },
        [](v2xpub_SocketInitPara_t& para) { para.m_svrEnable = para.m_cliEnable = 0; },
        [](v2xpub_SocketInitPara_t& para) { para.m_localIP[0] = 'x'; },
        [](v2xpub_SocketInitPara_t& para) { std::fill_n(para.m_localIP, sizeof para.m_localIP, '1'); }, // no NUL
    };
    V2X_UDPSOCKHANDLE handle = nullptr;
    for (const auto& fault : faults) {
        v2xpub_SocketInitPara_t para = ServerPara("invalid");
        fault(para);
        EXPECT_EQ(v2xpub_UdpSocketInit(&handle, &para, 0), -2) << "fault " << &fault - faults;
    }
    v2xpub_SocketInitPara_t para = ServerPara("");
    EXPECT_EQ(v2xpub_UdpSocketInit(nullptr, &para, 0), -2);
    EXPECT_EQ(v2xpub_UdpSocketInit(&handle, nullptr, 0), -2);
    EXPECT_EQ(v2xpub_UdpSocketInit(&handle, &para, -1), -2);
    EXPECT_EQ(handle, nullptr);
    EXPECT_EQ(Log().Count({"socket invalid", "m_svrPort is 0"}), 1);
    std::fill_n(para.m_sockName, sizeof para.m_sockName, 'n'); // no NUL
    Open(para, INT32_MAX);
    EXPECT_EQ(Log().Count({"receive buffer of", "2147483647 requested"}), 1);
}

TEST_F(Udp, RejectsInvalidArguments) {
    OpenClient();
    Bytes bytes(8);
    v2xpub_UdpSocketDataHead_t good = HeadOf(bytes);
    v2xpub_UdpSocketDataHead_t negative{-1, bytes.data()};
    v2xpub_UdpSocketDataHead_t noData{8, nullptr};
    const sockaddr_in& to = m_peer.address();
    constexpr int16_t SIZE = sizeof to;
    sockaddr_in otherFamily = to;
    otherFamily.sin_family = AF_INET6;

    EXPECT_EQ(v2xpub_UdpSocketReqSend(m_socket, &good), -2) << "no destination";
    ASSERT_EQ(v2xpub_UdpSocketSetSendAddr(m_socket, "127.0.0.1", m_peer.port()), 0);
    const std::vector<int32_t> results = {
        v2xpub_UdpSocketSetSendAddr(nullptr, "127.0.0.1", 1),
        v2xpub_UdpSocketSetSendAddr(m_socket, nullptr, 1),
        v2xpub_UdpSocketSetSendAddr(m_socket, "localhost", 1),
        v2xpub_UdpSocketReqSend(nullptr, &good),
        v2xpub_UdpSocketReqSend(m_socket, &negative),
        v2xpub_UdpSocketReqSend(m_socket, &noData),
        v2xpub_UdpSocketRespSend(m_socket, nullptr, &to, SIZE),
        v2xpub_UdpSocketRespSend(m_socket, &good, nullptr, SIZE),
        v2xpub_UdpSocketRespSend(m_socket, &good, &to, SIZE - 1),
        v2xpub_UdpSocketRespSend(m_socket, &good, &otherFamily, SIZE),
        v2xpub_UdpSocketRecv(nullptr, &good, 0),
        v2xpub_UdpSocketRecv(m_socket, nullptr, 0),
        v2xpub_UdpSocketRecv(m_socket, &noData, 0),
        v2xpub_UdpSocketRecv(m_socket, &good, -1),
        v2xpub_UdpSocketGetStats(m_socket, nullptr),
    };
    EXPECT_THAT(results, testing::Each(-2));
    EXPECT_EQ(v2xpub_UdpSocketReqSend(m_socket, &good), 0) << "the destination is unchanged";
    EXPECT_EQ(m_peer.receive(), bytes);
}

} // namespace
