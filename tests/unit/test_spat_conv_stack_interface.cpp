#include <algorithm>
#include <cstring>
#include <gmock/gmock.h>
#include <iterator>

#include "fixture.h"
#include "spat_conv_stack_interface.h"

namespace {

// A record in the 5120-byte buffer that every source uses.
class Record {
public:
    explicit Record(const std::string& hexDigits) {
        const std::vector<uint8_t> start = hex(hexDigits);
        std::copy(start.begin(), start.end(), m_bytes.begin());
    }
    int32_t notify() const { return v2xspatconv_SpatNotify(reinterpret_cast<const v2xipc_phases_t*>(m_bytes.data())); }
    std::vector<uint8_t> m_bytes = std::vector<uint8_t>(V2XIPC_RECORD_SIZE);
};

const char HEAD_NO_PHASES[] = "02000100 0000 52650100 D5DD 00";

using StackInterface = fakes::Fixture;

TEST_F(StackInterface, StopsAtTheFirstSocketFailureAndNeedsNoLogToolSocket) {
    fakes::socketResults["GET_SPAT_DATA"] = -3;
    EXPECT_EQ(v2xspatconv_StackInterfaceInit(), -3);
    EXPECT_EQ(fakes::sockets.size(), 1U);
    fakes::socketResults = {{"SPAT_C_LOGTOOL", -3}};
    EXPECT_EQ(v2xspatconv_StackInterfaceInit(), -3);
    EXPECT_THAT(fakes::takeLog(),
                testing::ElementsAre("SINF 2 SocketInit error ret=-3", "SINF 2 SocketInit LogTool error ret=-3"));
    EXPECT_EQ(Record(HEAD_NO_PHASES).notify(), 0);
    EXPECT_EQ(fakes::sent.size(), 1U);
}

TEST_F(StackInterface, BindsToTheLocalAddressAndAcceptsOnlyItsPeers) {
    const auto shown = [](const v2xpub_SocketInitPara_t& para) {
        std::string text = std::string(para.m_localIP) + " " + para.m_peer + " " + para.m_sendersKey;
        for (int32_t i = 0; i < para.m_senders.count; i++) {
            EXPECT_EQ(para.m_senders.blocks[i].mask, UINT32_MAX);
            text += std::string(" ") + v2xpub_FormatIp({para.m_senders.blocks[i].network, 0}).text;
        }
        return text;
    };
    const struct {
        const char* stackIp;
        const char* localIp;
        std::vector<std::string> sockets;
    } cases[] = {
        {"192.168.1.30",
         "0.0.0.0",
         {"0.0.0.0 stack ipc.hosts.RSU_RCV", "0.0.0.0 stack ipc.hosts.RSU_RCV", "0.0.0.0 log tool ipc.local_ip"}},
        {"127.0.0.1",
         "127.0.0.2",
         {"127.0.0.2 stack ipc.hosts.RSU_RCV 127.0.0.1", "127.0.0.2 stack ipc.hosts.RSU_RCV 127.0.0.1",
          "127.0.0.2 log tool ipc.local_ip 127.0.0.2"}},
        {"127.0.0.1",
         "192.168.1.10",
         {"192.168.1.10 stack ipc.hosts.RSU_RCV 127.0.0.1 192.168.1.10",
          "192.168.1.10 stack ipc.hosts.RSU_RCV 127.0.0.1 192.168.1.10",
          "192.168.1.10 log tool ipc.local_ip 192.168.1.10"}},
        {"192.168.1.30",
         "192.168.1.10",
         {"192.168.1.10 stack ipc.hosts.RSU_RCV 192.168.1.30", "192.168.1.10 stack ipc.hosts.RSU_RCV 192.168.1.30",
          "192.168.1.10 log tool ipc.local_ip 192.168.1.10"}},
    };
    for (const auto& row : cases) {
        strcpy(fakes::ipcConf.m_rsu_rcv_ip, row.stackIp);
        strcpy(fakes::ipcConf.m_local_ip, row.localIp);
        fakes::sockets.clear();
        ASSERT_EQ(v2xspatconv_StackInterfaceInit(), 0);
        std::vector<std::string> opened;
        std::transform(fakes::sockets.begin(), fakes::sockets.end(), std::back_inserter(opened), shown);
        EXPECT_EQ(opened, row.sockets);
    }
}

TEST_F(StackInterface, FramesRecordsByteForByte) {
    const std::string state = "01 05 0000 9600 FFFF FFFF FFFF FFFF FF";
    const struct {
        const char* what;
        std::string record;
        std::string frameHead; // from the command on
        size_t length;
    } cases[] = {
        {"no phases", HEAD_NO_PHASES, "1400 1800 00  01000000 18000000 0D00 00", 41},
        {"one phase with two states", "02000100 0000 52650100 D5DD 01 03 02" + state + state,
         "1400 3800 00  01000000 18000000 2D00 00", 73},
        {"more counted than written: zeros follow", "02000100 0000 52650100 D5DD 03 03 01" + state,
         "1400 2D00 00  01000000 18000000 2200 00", 62},
        {"a negative count has no phases", "02000100 0000 52650100 D5DD C8 03 01" + state,
         "1400 1800 00  01000000 18000000 0D00 00", 41},
    };
    ASSERT_EQ(v2xspatconv_StackInterfaceInit(), 0);
    fakes::now = 0x00064C462A070608;
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        fakes::sent.clear();
        const Record record(row.record);
        EXPECT_EQ(record.notify(), 0);
        ASSERT_EQ(fakes::sent.size(), 1U);
        EXPECT_EQ(fakes::sent[0].socket, "SPAT_SEND_APP");
        EXPECT_EQ(fakes::sent[0].ip, "RSU_RCV");
        EXPECT_EQ(fakes::sent[0].port, 20010);
        std::vector<uint8_t> expected = hex("A55A 04 00 0806072A464C0600" + row.frameHead);
        expected.insert(expected.end(), record.m_bytes.begin(), record.m_bytes.begin() + (row.length - 28));
        EXPECT_EQ(fakes::sent[0].bytes, expected);
    }
}

TEST_F(StackInterface, RemembersWhetherTheLastRequestWasAnswered) {
    ASSERT_EQ(v2xspatconv_StackInterfaceInit(), 0);
    uint8_t bytes[28] = {};
    fakes::replies = {Bytes(28)};
    for (const auto expected : {v2xspatconv_stackState::answers, v2xspatconv_stackState::silent}) {
        v2xpub_UdpSocketDataHead_t reply = {sizeof bytes, bytes};
        v2xspatconv_AskStack({sizeof bytes, bytes}, reply);
        EXPECT_EQ(v2xspatconv_GetStackState(), expected);
    }
}

TEST_F(StackInterface, RejectsRecordThatExceedsItsBuffer) {
    ASSERT_EQ(v2xspatconv_StackInterfaceInit(), 0);
    Record record("02000100 0000 52650100 D5DD 02 01 FF");
    record.m_bytes[13 + 2 + 255 * 15 + 1] = 85; // 13 + 3827 + 2 + 1275 = 5117
    EXPECT_EQ(record.notify(), 0);
    record.m_bytes[13 + 2 + 255 * 15 + 1] = 86;
    EXPECT_EQ(record.notify(), -3);
    EXPECT_EQ(fakes::sent.size(), 1U);
    EXPECT_EQ(fakes::logged("SPAT record with 2 phases exceeds its 5120 bytes, not sent").front().level, 2);
}

} // namespace
