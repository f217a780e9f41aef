#include "spat_conv_stack_interface.h"
#include "spat_conv_stack_interface_socket.h"

#include <cstdio>
#include <cstring>

#include "v2x/v2xcount.h"
#include "v2x/v2xipc.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace {

v2xlog_tag_t g_log{"SINF"};

v2x_counter g_sent{"record", "sent"};
v2x_counter g_notSent{"record", "not_sent"};
v2x_counter g_tooLong{"record", "too_long"};

// Set once by the main thread before any source starts.
const v2x_ipc_config_t* g_ipc_conf = nullptr;
V2X_IPCSOCKHANDLE g_udp_send_data_to_app_handle = nullptr;
V2X_IPCSOCKHANDLE g_udp_get_app_data_handle = nullptr;
V2X_IPCSOCKHANDLE g_logToolHandle = nullptr;

constexpr int32_t REPLY_WAIT_MS = 2000;
constexpr size_t FRAME_SIZE = sizeof(v2xipc_dataHead_t) + sizeof(v2xipc_rsuData_t) + V2XIPC_RECORD_SIZE;

struct SocketRow {
    const char* name;
    V2X_IPCSOCKHANDLE* handle;
    int16_t v2x_ipc_config_t::*port;
    v2xpub_msgFunc serve; // of a server, null = a client
    const char* what;     // in the message on failure
};

constexpr SocketRow SOCKETS[] = {
    {"SPAT_SEND_APP", &g_udp_send_data_to_app_handle, &v2x_ipc_config_t::m_spat_conv_sndport, nullptr, ""},
    {"GET_SPAT_DATA", &g_udp_get_app_data_handle, &v2x_ipc_config_t::m_spat_conv_rcvport, nullptr, ""},
    {"SPAT_C_LOGTOOL", &g_logToolHandle, &v2x_ipc_config_t::m_spatconv_logtool_rcvport, GetLogCtl, " LogTool"},
};

int32_t OpenSocket(const SocketRow& row) {
    v2xpub_SocketInitPara_t para = {};
    const uint16_t port = static_cast<uint16_t>(g_ipc_conf->*row.port);
    snprintf(para.m_sockName, sizeof para.m_sockName, "%s", row.name);
    snprintf(para.m_localIP, sizeof para.m_localIP, "0.0.0.0");
    const bool isServer = row.serve != nullptr;
    para.m_svrEnable = isServer ? 1 : 0;
    para.m_cliEnable = isServer ? 0 : 1;
    para.m_svrPort = isServer ? port : 0;
    para.m_cliPort = isServer ? 0 : port;
    para.f_msgFunc = row.serve;
    return v2xipc_SocketInit(row.handle, g_ipc_conf, &para);
}

// Length of the record with its phases, or -3 when they do not fit its buffer. A negative count holds no phases.
int32_t RecordLength(const uint8_t* record, int8_t phaseNum) {
    int32_t length = sizeof(v2xipc_phases_t);
    for (int32_t i = 0; i < phaseNum; i++) {
        v2xipc_phase_t phase;
        if (length + static_cast<int32_t>(sizeof phase) > V2XIPC_RECORD_SIZE) {
            return -3;
        }
        memcpy(&phase, record + length, sizeof phase);
        length += static_cast<int32_t>(sizeof phase + sizeof(v2xipc_pahseState_t) * phase.m_phaseStateNum);
    }
    return length <= V2XIPC_RECORD_SIZE ? length : -3;
}

int32_t v2xspatconv_PackIpcSpatAndSendData(uint16_t opCode, const v2xipc_phases_t* spat_ipc) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    uint8_t frame[FRAME_SIZE];
    v2xipc_dataHead_t head = {};
    uint16_t blockLength = 0;
    ret = spat_fill(frame + sizeof head, spat_ipc, &blockLength);
    if (ret != 0) {
        return ret;
    }
    memcpy(head.m_headFlag, V2XIPC_HEAD_FLAG, sizeof head.m_headFlag);
    head.m_inc = V2XIPC_INC;
    head.m_sendTime64 = v2xpub_CommGetCurrentTime64();
    head.m_cmdType = opCode;
    head.m_packLen = blockLength;
    memcpy(frame, &head, sizeof head);

    const v2xpub_UdpSocketDataHead_t request = {static_cast<int16_t>(sizeof head + blockLength), frame};
    v2xipc_SocketSetSendAddr(g_udp_send_data_to_app_handle, g_ipc_conf, "RSU_RCV",
                             g_ipc_conf != nullptr ? g_ipc_conf->m_app_rs_rcvport : int16_t{0});
    const int32_t sent =
        v2xipc_SocketReqSend(g_udp_send_data_to_app_handle, g_ipc_conf, REPLY_WAIT_MS, &request, nullptr);
    (sent == 0 ? g_sent : g_notSent).Add();
    return ret;
}

} // namespace

int32_t v2xspatconv_AskStack(const v2xpub_UdpSocketDataHead_t& request, v2xpub_UdpSocketDataHead_t& reply) {
    v2xipc_SocketSetSendAddr(g_udp_get_app_data_handle, g_ipc_conf, "RSU_RCV",
                             g_ipc_conf != nullptr ? g_ipc_conf->m_app_rs_rcvport : int16_t{0});
    return v2xipc_SocketReqSend(g_udp_get_app_data_handle, g_ipc_conf, REPLY_WAIT_MS, &request, &reply);
}

int32_t v2xspatconv_AnswerLogTool(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t& answer, const void* addr,
                                  int16_t addrLen) {
    return v2xipc_SocketRespSend(handle, g_ipc_conf, &answer, addr, addrLen);
}

int32_t v2xspatconv_StackInterfaceInit(const spat_conv_config_t* spatconv_cfg) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    (void)spatconv_cfg; // the ports are the unit's, not the daemon's
    v2xipc_GetIpcConfValue(&g_ipc_conf);
    for (const SocketRow& row : SOCKETS) {
        const int32_t opened = OpenSocket(row);
        if (opened != 0) {
            V2XLOG(g_log, V2XLOG_ERROR, "SocketInit%s error ret=%d", row.what, opened);
            return ret = -3;
        }
    }
    return ret;
}

int32_t v2xspatconv_SpatNotify(const v2xipc_phases_t* spat_ipc) {
    if (spat_ipc == nullptr) {
        return -2;
    }
    return v2xspatconv_PackIpcSpatAndSendData(V2XIPC_CMD_TO_STACK, spat_ipc);
}

int32_t spat_fill(uint8_t* pData, const v2xipc_phases_t* spat_ipc, uint16_t* plen) {
    if (pData == nullptr || spat_ipc == nullptr || plen == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return -2;
    }
    const uint8_t* record = reinterpret_cast<const uint8_t*>(spat_ipc);
    const int32_t length = RecordLength(record, spat_ipc->m_phaseNum);
    if (length < 0) {
        g_tooLong.Add();
        V2XLOG(g_log, V2XLOG_ERROR, "SPAT record with %d phases runs past its %d bytes, not sent", spat_ipc->m_phaseNum,
               V2XIPC_RECORD_SIZE);
        return length;
    }
    v2xipc_rsuData_t block = {};
    block.m_dataType = V2XIPC_DATA_SPAT_RECORD;
    block.m_dataNo = V2XIPC_DATA_NO_SPAT_RECORD;
    block.m_dataLen = static_cast<uint16_t>(length);
    memcpy(pData, &block, sizeof block);
    memcpy(pData + sizeof block, record, static_cast<size_t>(length));
    *plen = static_cast<uint16_t>(sizeof block + static_cast<size_t>(length));
    return 0;
}
