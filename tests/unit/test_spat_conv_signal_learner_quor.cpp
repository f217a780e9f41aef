#include <cstring>
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "device_test.h"
#include "spat_conv_gate.h"
#include "spat_conv_signal_learner_quor.h"
#include "spat_conv_signal_learner_quor_report.h"

namespace {

using testing::ElementsAre;
using testing::IsEmpty;

class Learner : public DeviceTest {
protected:
    Learner() {
        m_config->m_learn_machine_info = {true, "127.0.0.5", 65536 + 8001, 65536 + 8002};
        g_quorLink.dds_status = {.service_type = V2X_CLOUD_SERVICE_TYPE_SPAT,
                                 .run_status = V2X_CONV_RUN_STATUS_UNAVAILABLE};
        g_quorLink.lm_run_status_flag = 0;
        g_quorLink.next_sender_line = 0;
    }

    int32_t start() { return v2xspatconv_QuorSignalLearnerInterfaceInit(*m_config); }
    static void report(const std::string& digits) {
        fakes::receive("QUOR_RECV_SG", hex(digits), {0xC0A80142, 4000}); // 192.168.1.66
    }
    static void heartbeat() { fakes::tasks.at(0).run(); }
};

const char PHASE_3_GREEN_15_S[] = "FEFE10 000A 000100 03010F00000000";

TEST_F(Learner, ConvertsReportsToRecords) {
    m_config->m_guard.m_sources[V2XSPATCONV_LEARNER].m_phaseid[13] = 17;
    m_config->m_guard.m_sources[V2XSPATCONV_LEARNER].m_phaseid[14] = 44;
    ASSERT_EQ(start(), 0);
    std::string thirtyThree = "FEFE10 00EA 002100";
    for (int i = 0; i < 32; i++) {
        thirtyThree += "09010F00000000";
    }
    const struct {
        const char* what;
        std::string datagram;
        std::string record; // phase count; id:light:end time
    } cases[] = {
        {"colours", "FEFE10 0026 000500 01010000000000 02020100000000 0303FE00000000 04040500000000 05000500000000",
         "5; 1:5:0 2:3:10 3:7:2540 4:0:50 5:0:50"},
        {"a phase above 32 is counted, not sent", "FEFE10 0011 000200 28010F00000000 01011000000000", "2; 1:5:160"},
        {"0 and 33 are not sent, 32 is", "FEFE10 0018 000300 00010100000000 20020200000000 21030300000000",
         "3; 32:3:20"},
        {"a device phase above 32 that is mapped", "FEFE10 000A 000100 2C020200000000", "1; 14:3:20"},
        {"the last of two equal phases", "FEFE10 0011 000200 05010F00000000 05021000000000", "2; 5:3:160"},
        {"SPAT phase 13 shows device phase 17, phase 17 too",
         "FEFE10 0018 000300 0D010100000000 11020200000000 01030300000000", "3; 1:7:30 13:3:20 17:3:20"},
        {"seconds unknown", "FEFE10 000A 000100 0201FF00000000", "1; 2:0:36001"},
        {"the 33rd phase", thirtyThree + "01010F00000000", "33; 9:5:150"},
        {"200 phases", "FEFE10 000A 00C800 02010F00000000", "-56;"},
        {"a record cut short is absent", "FEFE10 0010 000200 03010F00000000 040110000000", "2; 3:5:150"},
        {"more received than counted", "FEFE10 0011 000100 03010F00000000 04011000000000", "1; 3:5:150"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        report(row.datagram);
        EXPECT_THAT(records(), ElementsAre(row.record));
    }
}

TEST_F(Learner, RejectsOtherDatagramsWithoutSignOfLife) {
    ASSERT_EQ(start(), 0);
    messages("QUOR");
    const struct {
        std::string datagram;
        std::string message;
    } cases[] = {
        {"", "2 Invalid LearnMachine Data"},
        {"FEFE1000", "2 Invalid LearnMachine Data"},
        {"FEFE11 0000", "2 Invalid LearnMachine Data"},
        {"FEFE10 000A 000100 03010F0000000000", "2 Invalid Length, [recv len:16] , [calc len:15]"},
        {"FEFE10 000A 000100 03010F000000", "2 Invalid Length, [recv len:14] , [calc len:15]"},
        {"FEFE10 FFFF", "2 Invalid Length, [recv len:5] , [calc len:4]"},
        {"FEFE10 8000", "2 Invalid Length, [recv len:5] , [calc len:-32763]"},
    };
    const std::string sender = "3 the datagram came from 192.168.1.66:4000";
    for (const auto& row : cases) {
        report(row.datagram);
        EXPECT_THAT(messages("QUOR"), ElementsAre(row.message, sender)) << row.datagram;
        fakes::monotonic += 59'999'999; // microseconds
        report(row.datagram);
        EXPECT_THAT(messages("QUOR"), ElementsAre(row.message)) << "the sender is named once a minute";
        fakes::monotonic++;
    }
    EXPECT_THAT(fakes::sent, IsEmpty());
    EXPECT_EQ(countsOf("learner"), (PathCounts{{"invalid", 6}, {"wrong_length", 8}}));
}

TEST_F(Learner, IdentityOutOfRangeSendsNothingAndCountsAsSignOfLife) {
    ASSERT_EQ(start(), 0);
    messages("QUOR");
    const struct {
        int32_t region;
        int32_t node;
        const char* reason;
    } cases[] = {
        {65536, 2, "2 regionId 65536 is out of range (0 to 65535)"},
        {-1, 2, "2 regionId -1 is out of range (0 to 65535)"},
        {1, 65536, "2 nodeId 65536 is out of range (0 to 65535)"},
        {1, -1, "2 nodeId -1 is out of range (0 to 65535)"},
    };
    for (const auto& row : cases) {
        m_config->m_regionId = row.region;
        m_config->m_nodeId = row.node;
        v2xspatconv_SetSpatConvStatus({});
        report(PHASE_3_GREEN_15_S);
        EXPECT_THAT(messages("QUOR"),
                    ElementsAre("2 asn param error", row.reason, "3 v2xspatconv_LearnMachineToIpcSpat error"));
        EXPECT_EQ(runStatus(), 1);
    }
    EXPECT_THAT(fakes::sent, IsEmpty());
    EXPECT_EQ(countsOf("learner"), (PathCounts{{"not_converted", 4}}));
}

TEST_F(Learner, SendsHeartbeatsAndTurnsAbnormalAtTheEleventhWithoutReport) {
    ASSERT_EQ(start(), 0);
    EXPECT_EQ(fakes::sockets.at(fakes::sockets.size() - 2).m_svrPort, 8002) << "the low 16 bits";
    heartbeat();
    ASSERT_EQ(fakes::sent.size(), 1U);
    EXPECT_EQ(fakes::sent[0].ip, "127.0.0.5");
    EXPECT_EQ(fakes::sent[0].port, 8001);
    EXPECT_EQ(fakes::sent[0].bytes, hex("FEFE03 0006 01 00000000 55"));
    EXPECT_EQ(runStatus(), 2) << "not working before the first report";

    for (int round = 0; round < 2; round++) {
        report(PHASE_3_GREEN_15_S);
        for (int beat = 1; beat <= 10; beat++) {
            heartbeat();
            EXPECT_EQ(runStatus(), 1) << "beat " << beat;
            report("FEFE11 0000"); // rejected: no sign of life
        }
        heartbeat();
        EXPECT_EQ(runStatus(), 2);
    }
    fakes::now = 5000000;
    heartbeat();
    EXPECT_THAT(displayed(v2xspatconv_DisplayQuorSignalInfo),
                ElementsAre("v2xspatconv_DisplayQuorSignalInfo start", "Signal learn machine works abnormally",
                            "Send count:24", "Send last time:5000000", "Recv count:2",
                            "Recv last time:1772714096789000", "v2xspatconv_DisplayQuorSignalInfo end"));
}

TEST_F(Learner, ReceivesAtTheLocalAddressFromTheConfiguredSenders) {
    v2xspatconv_sourceGuard_t& guard = m_config->m_guard.m_sources[V2XSPATCONV_LEARNER];
    for (const std::string localIp : {"", "192.168.1.10"}) {
        localIp.copy(guard.m_local_ip, sizeof guard.m_local_ip);
        guard.m_only_from = {2, {{0xC0A80114, UINT32_MAX}, {0xC0A80200, 0xFFFFFF00}}};
        ASSERT_EQ(start(), 0);
        EXPECT_THAT(messages("QUOR"), IsEmpty());
        const v2xpub_SocketInitPara_t& para = fakes::sockets.at(fakes::sockets.size() - 2);
        EXPECT_STREQ(para.m_localIP, localIp.empty() ? "0.0.0.0" : "192.168.1.10");
        EXPECT_STREQ(para.m_peer, "learner");
        EXPECT_STREQ(para.m_sendersKey, "OnlyFrom");
        EXPECT_EQ(memcmp(&para.m_senders, &guard.m_only_from, sizeof para.m_senders), 0);
    }
}

TEST_F(Learner, IsOffAtTheGateWithoutReceiveSocket) {
    m_config->m_learn_machine_info.m_is_enable = true;
    v2xspatconv_GateInit(*m_config, 0);
    fakes::socketResults["QUOR_RECV_SG"] = -3;
    EXPECT_EQ(start(), -3);
    EXPECT_THAT(messages("QUOR"), ElementsAre("2 v2xpub_UdpSocketInit end ret=-3"));
    v2xspatconv_sourceRow_t rows[V2XSPATCONV_SOURCES];
    v2xspatconv_GateGetSources(rows);
    EXPECT_EQ(rows[V2XSPATCONV_LEARNER].state, v2xspatconv_sourceState::off);
}

TEST_F(Learner, NamesAnInvalidDeviceAddressAtStart) {
    m_config->m_learn_machine_info.m_port = 65536;
    EXPECT_EQ(start(), 0);
    EXPECT_THAT(
        messages("QUOR"),
        ElementsAre("3 learner: OnlyFrom is not set, datagrams of any sender are accepted",
                    "2 cannot send heartbeats: LearnMachine.Ip \"127.0.0.5\", Port 65536 is not a UDP address"));
    heartbeat();
    EXPECT_THAT(fakes::sent, IsEmpty());
}

} // namespace
