#include "spat_conv_signal_learner_quor.h"

#include <atomic>
#include <cstring>

#include "spat_conv_gate.h"
#include "spat_conv_interface.h"
#include "spat_conv_link.h"
#include "spat_conv_signal_learner_quor_report.h"
#include "spat_conv_signal_socket.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace {

// Null until the socket is open. The heartbeat task starts earlier.
std::atomic<V2X_UDPSOCKHANDLE> g_udp_send_to_learnmachine_handle{nullptr};

constexpr uint32_t HEARTBEAT_INTERVAL = 1000000; // microseconds
constexpr uint8_t HEARTBEAT[] = {0xFE, 0xFE, 0x03, 0x00, 0x06, 0x01, 0x00, 0x00, 0x00, 0x00, 0x55};

constexpr v2xpub_SocketInitPara_t SEND_PARA = {.m_sockName = "QUOR_SEND_SG",
                                               .m_localIP = "0.0.0.0",
                                               .m_svrPort = 0,
                                               .m_cliPort = 0,
                                               .m_svrEnable = 0,
                                               .m_cliEnable = 1,
                                               .f_msgFunc = nullptr};

int32_t SetHeartbeatTarget(V2X_UDPSOCKHANDLE handle, const learn_machine_info_t& learner) {
    return v2xpub_UdpSocketSetSendAddr(handle, learner.m_ip, static_cast<uint16_t>(learner.m_port));
}

void SendHeartDataToLearnMachine(void* /*arg*/) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_quorLog, ret);
    const spat_conv_config_t* cfg = nullptr;
    ret = v2xspatconv_GetCfgData(&cfg);
    if (ret != 0) {
        V2XLOG(g_quorLog, V2XLOG_WARN, "Get spat config error:%d", ret);
    }
    const V2X_UDPSOCKHANDLE handle = g_udp_send_to_learnmachine_handle.load(std::memory_order_acquire);
    if (handle != nullptr && cfg != nullptr && SetHeartbeatTarget(handle, cfg->m_learn_machine_info) == 0) {
        uint8_t heartbeat[sizeof HEARTBEAT];
        memcpy(heartbeat, HEARTBEAT, sizeof heartbeat);
        const v2xpub_UdpSocketDataHead_t datagram = {sizeof heartbeat, heartbeat};
        v2xpub_UdpSocketReqSend(handle, &datagram);
    }
    // Legacy: a heartbeat that fails counts as sent.
    v2xspatconv_LinkCheck(g_quorLink, true);
}

// Creates the heartbeat task and opens the receive socket. Returns 0; -2 if the task cannot be created; -3 for the
// socket.
int32_t StartReceiving(const spat_conv_config_t& spatconv_cfg) {
    if (v2xspatconv_TaskCreat("LM_Heart_Data", HEARTBEAT_INTERVAL, SendHeartDataToLearnMachine, nullptr) != 0) {
        V2XLOG(g_quorLog, V2XLOG_ERROR, "Creat LM_Heart_Data error");
        return -2;
    }
    const v2xspatconv_receiveSocket_t socket = {V2XSPATCONV_LEARNER, spatconv_cfg.m_learn_machine_info,
                                                v2xspatconv_GetLearnMachineDataRcv};
    return v2xspatconv_OpenReceiveSocket(g_quorLog, socket, spatconv_cfg.m_guard) ? 0 : -3;
}

} // namespace

int32_t v2xspatconv_QuorSignalLearnerInterfaceInit(const spat_conv_config_t& spatconv_cfg) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_quorLog, ret);
    ret = StartReceiving(spatconv_cfg);
    if (ret != 0) {
        v2xspatconv_GateSwitchOff(V2XSPATCONV_LEARNER);
        return ret;
    }
    const learn_machine_info_t& learner = spatconv_cfg.m_learn_machine_info;
    const V2X_UDPSOCKHANDLE sender = v2xspatconv_OpenSignalSocket(g_quorLog, SEND_PARA);
    g_udp_send_to_learnmachine_handle.store(sender, std::memory_order_release);
    if (sender == nullptr) {
        return ret = -4;
    }
    if (SetHeartbeatTarget(sender, learner) != 0) {
        V2XLOG(g_quorLog, V2XLOG_ERROR, "cannot send heartbeats: LearnMachine.Ip \"%s\", Port %d is not a UDP address",
               learner.m_ip, static_cast<int32_t>(learner.m_port));
    }
    return ret;
}

void v2xspatconv_DisplayQuorSignalInfo(void* /*arg*/) {
    V2XLOG(g_quorLog, V2XLOG_DEBUG, "%s start", __func__);
    v2xspatconv_LinkDisplay(g_quorLink, g_quorLog, "Signal learn machine is working",
                            "Signal learn machine works abnormally");
    V2XLOG(g_quorLog, V2XLOG_DEBUG, "%s end", __func__);
}
