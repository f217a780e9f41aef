#include <gtest/gtest.h>

#include <atomic>
#include <filesystem>

#include "counts.h"
#include "platform_util.h"
#include "udp_peer.h"
#include "v2x/v2xipc.h"

namespace {

LogFile& Log() {
    static LogFile file{"VIPC", "UDPA"};
    return file;
}

const v2x_ipc_config_t* Conf() {
    const v2x_ipc_config_t* conf = nullptr;
    v2xipc_GetIpcConfValue(&conf);
    return conf;
}

// The table as numbers, the two's complement of the ports undone.
struct Table {
    uint16_t sendPort = 20001;
    uint16_t receivePort = 20002;
    uint16_t logToolPort = 20003;
    uint16_t stackPort = 20010;
    std::string host = "127.0.0.1";
    bool operator==(const Table&) const = default;
};

Table CurrentTable() {
    const v2x_ipc_config_t* conf = Conf();
    return {static_cast<uint16_t>(conf->m_spat_conv_sndport), static_cast<uint16_t>(conf->m_spat_conv_rcvport),
            static_cast<uint16_t>(conf->m_spatconv_logtool_rcvport), static_cast<uint16_t>(conf->m_app_rs_rcvport),
            conf->m_rsu_rcv_ip};
}

TEST(IpcConf, IsWhatTheFileSaysAndDefaultsElse) {
    const struct {
        const char* content; // of conf/v2x_ipc.cfg, or null for no file
        int32_t result;
        Table expected;
        const char* logged;
    } rows[] = {
        {nullptr, 0, {}, "no such file"},
        {"ipc = { spat_conv_sndport = 1; spat_conv_rcvport = 32768; spatconv_logtool_rcvport = 65535;\n"
         "app_rs_rcvport = 40000; hosts = { RSU_RCV = \"127.0.0.9\"; }; };",
         0,
         {1, 32768, 65535, 40000, "127.0.0.9"},
         ""},
        {"ipc = {", -3, {}, "v2x_ipc.cfg:"},
        {"ipc = { spatconv_logtool_rcvport = 0; spat_conv_sndport = 7; };",
         0,
         {7, 20002, 20003, 20010, "127.0.0.1"},
         "ipc.spatconv_logtool_rcvport: port 0 out of range"},
        {"ipc = { spat_conv_rcvport = -1; };", 0, {}, "ipc.spat_conv_rcvport: port -1 out of range"},
        {"ipc = { app_rs_rcvport = 65536; };", 0, {}, "ipc.app_rs_rcvport: port 65536 out of range"},
        {"ipc = { hosts = { RSU_RCV = \"localhost\"; }; };", 0, {}, "\"localhost\" is not a dotted IPv4 address"},
        {"ipc = { hosts = { RSU_RCV = \"127.0.0.1.127.0.0.1.127.0.0.1.127.0.0.1\"; }; };", 0, {}, "ipc.hosts.RSU_RCV"},
        {"ipc = { spat_conv_sndport = 0; spat_conv_rcvport = 0; };", 0, {0, 0, 20003, 20010, "127.0.0.1"}, ""},
    };
    const TempFolder folder;
    std::filesystem::create_directory(folder.path() + "/conf");
    for (const auto& row : rows) {
        SCOPED_TRACE(row.content != nullptr ? row.content : "no file");
        if (row.content != nullptr) {
            writeFile(folder.path() + "/conf/v2x_ipc.cfg", row.content);
        }
        Log().Forget();
        EXPECT_EQ(v2xipc_CfgInit(folder.path().c_str()), row.result);
        EXPECT_EQ(CurrentTable(), row.expected);
        const int lines = row.logged[0] == '\0' ? 0 : 1;
        EXPECT_EQ(Log().Count({"VIPC"}), lines);
        EXPECT_EQ(Log().Count({"VIPC", row.logged}), lines);
    }
    EXPECT_EQ(v2xipc_CfgInit("/nowhere"), 0) << "the defaults are back";
    EXPECT_EQ(CurrentTable(), Table{});
}

// Sends `text` and, with a reply wanted, returns what came; the result of the call in `result`.
std::string Request(V2X_IPCSOCKHANDLE socket, std::string text, int32_t timeoutMs, int32_t& result) {
    Bytes buffer(100);
    const v2xpub_UdpSocketDataHead_t request{static_cast<int16_t>(text.size()),
                                             reinterpret_cast<uint8_t*>(text.data())};
    v2xpub_UdpSocketDataHead_t reply{static_cast<int16_t>(buffer.size()), buffer.data()};
    result = v2xipc_SocketReqSend(socket, Conf(), timeoutMs, &request, &reply);
    return result == 0 ? std::string(buffer.begin(), buffer.begin() + reply.m_curMsgLen) : "";
}

int32_t RequestWithoutReply(V2X_IPCSOCKHANDLE socket, uint8_t byte) {
    const v2xpub_UdpSocketDataHead_t request{1, &byte};
    return v2xipc_SocketReqSend(socket, Conf(), 60'000, &request, nullptr);
}

Bytes BytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

class IpcSocket : public testing::Test {
protected:
    IpcSocket() {
        const v2xpub_SocketInitPara_t para = SocketPara("client", false, 0, nullptr);
        EXPECT_EQ(v2xipc_SocketInit(&m_client, Conf(), &para), 0);
        SendTo(m_peer.port());
    }
    ~IpcSocket() override { EXPECT_EQ(v2xipc_SocketExit(m_client), 0); }
    void SendTo(uint16_t port) {
        EXPECT_EQ(v2xipc_SocketSetSendAddr(m_client, Conf(), "RSU_RCV", static_cast<int16_t>(port)), 0);
    }

    V2X_IPCSOCKHANDLE m_client = nullptr;
    UdpPeer m_peer;
};

TEST_F(IpcSocket, RequestWithoutReplyDoesNotWaitBehindOneThatWaits) {
    std::atomic<bool> done{false};
    std::string reply;
    int32_t result = -1;
    std::thread waiting([&] {
        reply = Request(m_client, "question", 60'000, result);
        done = true;
    });
    EXPECT_EQ(m_peer.receive(), BytesOf("question"));
    for (uint8_t i = 0; i < 10; ++i) {
        EXPECT_EQ(RequestWithoutReply(m_client, i), 0);
        EXPECT_EQ(m_peer.receive(), Bytes{i});
    }
    EXPECT_FALSE(done) << "the caller that wants a reply still waits";
    EXPECT_TRUE(m_peer.sendTo(m_peer.senderPort(), BytesOf("answer")));
    waiting.join();
    EXPECT_EQ(result, 0);
    EXPECT_EQ(reply, "answer");
}

TEST_F(IpcSocket, LateReplyIsNotTakenForTheNextOne) {
    int32_t result = 0;
    EXPECT_EQ(Request(m_client, "first", 1, result), "");
    EXPECT_EQ(result, -4);
    EXPECT_EQ(m_peer.receive(), BytesOf("first"));
    const uint16_t client = m_peer.senderPort();
    for (int i = 0; i < 3; ++i) {
        EXPECT_TRUE(m_peer.sendTo(client, BytesOf("late")));
    }
    EXPECT_TRUE(m_peer.sendTo(client, Bytes(40'000))) << "too long to be taken, and late";
    std::thread answering([&] {
        EXPECT_EQ(m_peer.receive(), BytesOf("second"));
        EXPECT_TRUE(m_peer.sendTo(client, BytesOf("in time")));
    });
    EXPECT_EQ(Request(m_client, "second", 60'000, result), "in time");
    EXPECT_EQ(result, 0);
    answering.join();
    EXPECT_EQ(countsOf("ipc"), (PathCounts{{"late_replies", 3}}));
}

// Answers with what it got.
void Echo(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen) {
    const auto* head = static_cast<v2xpub_UdpSocketDataHead_t*>(p_data);
    EXPECT_EQ(v2xipc_SocketRespSend(handle, Conf(), head, addr, addrLen), 0);
}

TEST_F(IpcSocket, CallersThatWaitOnOneSocketGetTheirOwnReplies) {
    V2X_IPCSOCKHANDLE server = nullptr;
    const v2xpub_SocketInitPara_t para = SocketPara("server", true, UdpPeer().port(), Echo);
    ASSERT_EQ(v2xipc_SocketInit(&server, Conf(), &para), 0);
    SendTo(para.m_svrPort);
    const auto askOften = [&](const std::string& name) {
        for (int i = 0; i < 50; ++i) {
            const std::string text = name + std::to_string(i);
            int32_t result = -1;
            EXPECT_EQ(Request(m_client, text, 60'000, result), text);
        }
    };
    std::thread other(askOften, "other");
    askOften("this");
    other.join();
    int32_t result = 0;
    EXPECT_EQ(Request(server, "from a server with callback", 0, result), "");
    EXPECT_EQ(result, -2) << "its receive thread takes whatever comes";
    EXPECT_EQ(v2xipc_SocketExit(server), 0);
}

TEST_F(IpcSocket, RefusesUnfitArguments) {
    uint8_t byte = 0;
    const v2xpub_UdpSocketDataHead_t request{1, &byte};
    v2xpub_UdpSocketDataHead_t reply{1, &byte};
    v2xpub_UdpSocketDataHead_t noBuffer{1, nullptr};
    v2xpub_UdpSocketDataHead_t negative{-1, &byte};
    const v2xpub_SocketInitPara_t para = SocketPara("client", false, 0, nullptr);
    v2x_ipc_config_t noNul = *Conf();
    std::fill_n(noNul.m_rsu_rcv_ip, sizeof noNul.m_rsu_rcv_ip, '1');
    V2X_IPCSOCKHANDLE socket = nullptr;
    const struct {
        const char* call;
        int32_t result;
    } rows[] = {
        {"CfgInit null", v2xipc_CfgInit(nullptr)},
        {"GetIpcConfValue null", v2xipc_GetIpcConfValue(nullptr)},
        {"Init null handle", v2xipc_SocketInit(nullptr, Conf(), &para)},
        {"Init null table", v2xipc_SocketInit(&socket, nullptr, &para)},
        {"Init null", v2xipc_SocketInit(&socket, Conf(), nullptr)},
        {"SetSendAddr null handle", v2xipc_SocketSetSendAddr(nullptr, Conf(), "RSU_RCV", 1)},
        {"SetSendAddr null table", v2xipc_SocketSetSendAddr(m_client, nullptr, "RSU_RCV", 1)},
        {"SetSendAddr null host", v2xipc_SocketSetSendAddr(m_client, Conf(), nullptr, 1)},
        {"SetSendAddr unknown host", v2xipc_SocketSetSendAddr(m_client, Conf(), "RSU", 1)},
        {"SetSendAddr no NUL", v2xipc_SocketSetSendAddr(m_client, &noNul, "RSU_RCV", 1)},
        {"ReqSend null handle", v2xipc_SocketReqSend(nullptr, Conf(), 0, &request, nullptr)},
        {"ReqSend null table", v2xipc_SocketReqSend(m_client, nullptr, 0, &request, nullptr)},
        {"ReqSend null", v2xipc_SocketReqSend(m_client, Conf(), 0, nullptr, nullptr)},
        {"ReqSend no buffer", v2xipc_SocketReqSend(m_client, Conf(), 0, &request, &noBuffer)},
        {"ReqSend negative size", v2xipc_SocketReqSend(m_client, Conf(), 0, &request, &negative)},
        {"ReqSend negative time", v2xipc_SocketReqSend(m_client, Conf(), -1, &request, &reply)},
        {"RespSend null table", v2xipc_SocketRespSend(nullptr, nullptr, &request, &m_peer.address(), 16)},
    };
    for (const auto& row : rows) {
        EXPECT_EQ(row.result, -2) << row.call;
    }
    EXPECT_EQ(socket, nullptr);
    EXPECT_FALSE(m_peer.receive(0)) << "nothing was sent";
    EXPECT_EQ(v2xipc_SocketExit(nullptr), 0);
}

} // namespace
