#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>

#include "counts.h"
#include "platform_util.h"
#include "udp_peer.h"
#include "v2x/v2xipc.h"

namespace {

const v2x_ipc_config_t* Conf() {
    const v2x_ipc_config_t* conf = nullptr;
    v2xipc_GetIpcConfValue(&conf);
    return conf;
}

TEST(IpcConf, KeepsTheDefaultOfMissingAndInvalidValues) {
    const v2x_ipc_config_t defaults{20001, 20002, 20003, 20010, "127.0.0.1", "0.0.0.0"};
    const v2x_ipc_config_t changed{1, -32768, -1, -25536, "127.0.0.9", "127.0.0.3"};
    const v2x_ipc_config_t sendsFromAny{0, 20002, 20003, 20010, "127.0.0.1", "0.0.0.0"};
    const struct {
        const char* content; // of conf/v2x_ipc.cfg, or null without the file
        int32_t result;
        v2x_ipc_config_t table;
        const char* logged;
    } rows[] = {
        {nullptr, 0, defaults, "no such file"},
        {"ipc = { spat_conv_sndport = 1; spat_conv_rcvport = 32768; spatconv_logtool_rcvport = 65535;\n"
         "app_rs_rcvport = 40000; local_ip = \"127.0.0.3\"; hosts = { RSU_RCV = \"127.0.0.9\"; }; };",
         0, changed, ""},
        {"ipc = {", -3, defaults, "v2x_ipc.cfg:"},
        {"ipc = 1;", 0, defaults, "v2x_ipc.cfg:1: ipc: expected a group, found an integer"},
        {"ipc = { spatconv_logtool_rcvport = 0; spat_conv_sndport = 0; };", 0, sendsFromAny,
         "ipc.spatconv_logtool_rcvport: port 0 out of range"},
        {"ipc = { app_rs_rcvport = 65536; };", 0, defaults, "ipc.app_rs_rcvport: port 65536 out of range"},
        {"ipc = { hosts = { RSU_RCV = \"a\"; }; };", 0, defaults, "\"a\" is not a dotted IPv4 address"},
        {"ipc = { app_rs_rcvport = 20003; hosts = { RSU_RCV = \"10.0.0.1\"; }; };",
         0,
         {20001, 20002, 20003, 20003, "10.0.0.1", "0.0.0.0"},
         ""},
        {"ipc = { spat_conv_sndport = 20002; local_ip = \"127.0.0.1\"; };",
         0,
         {20002, 20002, 20003, 20010, "127.0.0.1", "127.0.0.1"},
         "v2x_ipc.cfg:1: ipc.spat_conv_sndport: the port is also ipc.spat_conv_rcvport"},
        {"ipc = {\nRSU_RCV = 1; };", 0, defaults, "v2x_ipc.cfg:2: ipc.RSU_RCV: unknown key RSU_RCV"},
    };
    static LogFile log("VIPC");
    const TempFolder folder;
    std::filesystem::create_directory(folder.path() + "/conf");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.content != nullptr ? row.content : "no file");
        if (row.content != nullptr) {
            writeFile(folder.path() + "/conf/v2x_ipc.cfg", row.content);
        }
        log.Forget();
        EXPECT_EQ(v2xipc_CfgInit(folder.path().c_str()), row.result);
        EXPECT_EQ(std::memcmp(Conf(), &row.table, sizeof row.table), 0);
        EXPECT_EQ(log.Count(" VIPC "), row.logged[0] == '\0' ? 0 : 1);
        EXPECT_EQ(log.Count(row.logged), log.Count(" VIPC "));
    }
}

TEST(IpcConf, RefusesInvalidLocalAddresses) {
    const struct {
        const char* content; // from line 2
        const char* reason;  // after "FILE:2: ipc.local_ip: "; null if the configuration is accepted
    } rows[] = {
        {"local_ip = \"192.168.1.10\"; hosts = { RSU_RCV = \"127.0.0.1\"; };", nullptr},
        {"local_ip = \"0.0.0.0\"; hosts = { RSU_RCV = \"192.168.1.30\"; };", nullptr},
        {"hosts = { RSU_RCV = \"192.168.1.30\"; };", nullptr},
        {"local_ip = \"\";", "\"\" is not a dotted IPv4 address"},
        {"local_ip = \"127.0.0.1/32\";", "\"127.0.0.1/32\" is not a dotted IPv4 address"},
        {"local_ip = \"224.0.0.0\";", "\"224.0.0.0\" is a multicast or broadcast address"},
        {"local_ip = \"239.255.255.255\";", "\"239.255.255.255\" is a multicast or broadcast address"},
        {"local_ip = \"255.255.255.255\";", "\"255.255.255.255\" is a multicast or broadcast address"},
        {"local_ip = 127;", "expected a string, found an integer"},
        {"local_ip = \"12345678901234567890123456789012\";", "string of 32 characters, at most 31 are allowed"},
        {"local_ip = \"127.1.2.3\"; hosts = { RSU_RCV = \"128.0.0.1\"; };",
         "a socket at 127.1.2.3 cannot reach ipc.hosts.RSU_RCV 128.0.0.1"},
    };
    const TempFolder folder;
    std::filesystem::create_directory(folder.path() + "/conf");
    const std::string path = folder.path() + "/conf/v2x_ipc.cfg";
    for (const auto& row : rows) {
        SCOPED_TRACE(row.content);
        writeFile(path, std::string("ipc = {\n") + row.content + " };\n");
        EXPECT_EQ(v2xipc_CfgInit(folder.path().c_str()), row.reason != nullptr ? -5 : 0);
        if (row.reason != nullptr) {
            EXPECT_EQ(v2xipc_GetCfgErrorText(), path + ":2: ipc.local_ip: " + row.reason);
        }
    }
    const struct {
        const char* content;
        const char* reason; // after the file name
    } files[] = {
        {"ipc = {\nlocal_ip = \"127.0.0.1\"", ":3: syntax error"},
        {"ipc = 1;\n# local_ip", ":1: ipc: expected a group, found an integer"},
        {"ipc = ({ local_ip = \"127.0.0.1\"; });", ":1: ipc: expected a group, found a list"},
        {"local_ip = \"127.0.0.1\";", ":1: local_ip: unknown key local_ip, did you mean ipc.local_ip?"},
        {"Ipc = {\nlocal_ip = \"127.0.0.1\"; };", ":2: Ipc.local_ip: unknown key local_ip, did you mean ipc.local_ip?"},
        {"ipc = {}; a = (1, {\nLocalIp = 1; });", ":2: a.[1].LocalIp: unknown key LocalIp, did you mean ipc.local_ip?"},
        {"ipc = { hosts = { local_ip = \"\"; }; };",
         ":1: ipc.hosts.local_ip: unknown key local_ip, did you mean ipc.local_ip?"},
        {"ipc = { lokal_ip = \"127.0.0.1\"; };", ":1: ipc.lokal_ip: unknown key lokal_ip, did you mean local_ip?"},
        {"# local_ip = \"127.0.0.1\";", nullptr},
    };
    for (const auto& row : files) {
        SCOPED_TRACE(row.content);
        writeFile(path, row.content);
        EXPECT_EQ(v2xipc_CfgInit(folder.path().c_str()), row.reason != nullptr ? -5 : 0);
        if (row.reason != nullptr) {
            EXPECT_EQ(v2xipc_GetCfgErrorText(), path + row.reason);
        }
    }
    writeFile(path, "");
    EXPECT_EQ(v2xipc_CfgInit(folder.path().c_str()), 0); // the other tests use the defaults
}

V2X_IPCSOCKHANDLE OpenClient() {
    const v2xpub_SocketInitPara_t para = SocketPara("client", false, 0, nullptr);
    V2X_IPCSOCKHANDLE socket = nullptr;
    EXPECT_EQ(v2xipc_SocketInit(&socket, Conf(), &para), 0);
    return socket;
}

// A client whose requests go to m_peer.
class IpcSocket : public testing::Test {
protected:
    IpcSocket() {
        EXPECT_EQ(v2xipc_SocketSetSendAddr(m_client, Conf(), "RSU_RCV", static_cast<int16_t>(m_peer.port())), 0);
    }
    // Returns the reply, or the result of a call that failed.
    std::string Request(std::string text, int32_t timeoutMs = 60'000) {
        uint8_t buffer[100];
        const v2xpub_UdpSocketDataHead_t request{static_cast<int16_t>(text.size()),
                                                 reinterpret_cast<uint8_t*>(text.data())};
        v2xpub_UdpSocketDataHead_t reply{sizeof buffer, buffer};
        const int32_t result = v2xipc_SocketReqSend(m_client, Conf(), timeoutMs, &request, &reply);
        return result == 0 ? std::string(buffer, buffer + reply.m_curMsgLen) : std::to_string(result);
    }
    static Bytes BytesOf(const std::string& text) { return {text.begin(), text.end()}; }

    static inline const V2X_IPCSOCKHANDLE m_client = OpenClient();
    UdpPeer m_peer;
};

TEST_F(IpcSocket, RequestWithoutReplyDoesNotWaitForAnotherCaller) {
    std::atomic<bool> isDone{false};
    std::thread waiting([&] {
        EXPECT_EQ(Request("question"), "answer");
        isDone = true;
    });
    EXPECT_EQ(m_peer.receive(), BytesOf("question"));
    for (uint8_t i = 0; i < 10; ++i) {
        const v2xpub_UdpSocketDataHead_t request{1, &i};
        EXPECT_EQ(v2xipc_SocketReqSend(m_client, Conf(), 60'000, &request, nullptr), 0);
        EXPECT_EQ(m_peer.receive(), Bytes{i});
    }
    EXPECT_FALSE(isDone);
    EXPECT_TRUE(m_peer.sendTo(m_peer.senderPort(), BytesOf("answer")));
    waiting.join();
}

TEST_F(IpcSocket, DiscardsLateReplies) {
    const uint64_t before = countsOf("ipc")["late_replies"];
    EXPECT_EQ(Request("first", 1), "-4");
    EXPECT_EQ(m_peer.receive(), BytesOf("first"));
    const uint16_t client = m_peer.senderPort();
    for (const size_t size : {4, 100, 32'767, 40'000}) { // the last one is longer than a message may be
        EXPECT_TRUE(m_peer.sendTo(client, Bytes(size)));
    }
    std::thread answering([&] {
        EXPECT_EQ(m_peer.receive(), BytesOf("second"));
        EXPECT_TRUE(m_peer.sendTo(client, BytesOf("in time")));
    });
    EXPECT_EQ(Request("second"), "in time");
    answering.join();
    EXPECT_EQ(countsOf("ipc")["late_replies"], before + 3);
}

} // namespace
