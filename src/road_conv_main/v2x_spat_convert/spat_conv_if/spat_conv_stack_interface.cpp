#include "spat_conv_stack_interface.h"

#include <atomic>
#include <cstdio>
#include <cstring>

#include "spat_conv_stack_interface_logctl.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xipc.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace {

v2xlog_tag_t g_log{"SINF"};

v2x_counter g_sent{"record", "sent"};
v2x_counter g_notSent{"record", "not_sent"};
v2x_counter g_tooLong{"record", "too_long"};

// The main thread sets these variables once, before the adapters start.
const v2x_ipc_config_t* g_ipc_conf = nullptr;
V2X_IPCSOCKHANDLE g_udp_send_data_to_app_handle = nullptr;
V2X_IPCSOCKHANDLE g_udp_get_app_data_handle = nullptr;
V2X_IPCSOCKHANDLE g_logToolHandle = nullptr;

std::atomic<v2xspatconv_stackState> g_stackState{v2xspatconv_stackState::unknown};
std::atomic<uint64_t> g_lastAnswer{0};

constexpr int32_t REPLY_WAIT_MS = 2000;
constexpr size_t FRAME_SIZE = sizeof(v2xipc_dataHead_t) + sizeof(v2xipc_rsuData_t) + V2XIPC_RECORD_SIZE;

// The peer of a socket.
struct PeerRow {
    const char* name;
    const char* key; // configuration key of the host
    v2xpub_senders_t (*listSenders)(const v2x_ipc_config_t& conf);
};

constexpr PeerRow STACK = {"stack", "ipc.hosts.RSU_RCV", v2xipc_ListStackSenders};
constexpr PeerRow LOG_TOOL = {"log tool", "ipc.local_ip", v2xipc_ListLogToolSenders};

struct SocketRow {
    const char* name;
    V2X_IPCSOCKHANDLE* handle;
    int16_t v2x_ipc_config_t::*port;
    v2xpub_msgFunc callback; // receive callback of a server; null for a client
    const PeerRow& peer;
};

constexpr SocketRow SOCKETS[] = {
    {"SPAT_SEND_APP", &g_udp_send_data_to_app_handle, &v2x_ipc_config_t::m_spat_conv_sndport, nullptr, STACK},
    {"GET_SPAT_DATA", &g_udp_get_app_data_handle, &v2x_ipc_config_t::m_spat_conv_rcvport, nullptr, STACK},
    {"SPAT_C_LOGTOOL", &g_logToolHandle, &v2x_ipc_config_t::m_spatconv_logtool_rcvport, GetLogCtl, LOG_TOOL},
};

int32_t OpenSocket(const SocketRow& row) {
    v2xpub_SocketInitPara_t para = {};
    const uint16_t port = static_cast<uint16_t>(g_ipc_conf->*row.port);
    snprintf(para.m_sockName, sizeof para.m_sockName, "%s", row.name);
    snprintf(para.m_localIP, sizeof para.m_localIP, "%s", g_ipc_conf->m_local_ip);
    const bool isServer = row.callback != nullptr;
    para.m_svrEnable = isServer ? 1 : 0;
    para.m_cliEnable = isServer ? 0 : 1;
    para.m_svrPort = isServer ? port : 0;
    para.m_cliPort = isServer ? 0 : port;
    para.f_msgFunc = row.callback;
    para.m_peer = row.peer.name;
    para.m_sendersKey = row.peer.key;
    para.m_senders = row.peer.listSenders(*g_ipc_conf);
    return v2xipc_SocketInit(row.handle, g_ipc_conf, &para);
}

// Returns the length of the record with its phases in bytes; -3 if the phases exceed V2XIPC_RECORD_SIZE. A negative
// number of phases counts as 0.
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

// Writes the RSU data block of a record to pData (11 + V2XIPC_RECORD_SIZE bytes) and the length of the block to *plen.
// Returns 0; -3 if the phases of the record exceed V2XIPC_RECORD_SIZE bytes.
int32_t spat_fill(uint8_t* pData, const v2xipc_phases_t* spat_ipc, uint16_t* plen) {
    const uint8_t* record = reinterpret_cast<const uint8_t*>(spat_ipc);
    const int32_t length = RecordLength(record, spat_ipc->m_phaseNum);
    if (length < 0) {
        g_tooLong.Add();
        V2XLOG(g_log, V2XLOG_ERROR, "SPAT record with %d phases exceeds its %d bytes, not sent", spat_ipc->m_phaseNum,
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

// Sends a request to the stack application. Results as for v2xipc_SocketReqSend.
int32_t SendToStack(V2X_IPCSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t& request,
                    v2xpub_UdpSocketDataHead_t* reply) {
    v2xipc_SocketSetSendAddr(handle, g_ipc_conf, "RSU_RCV",
                             g_ipc_conf != nullptr ? g_ipc_conf->m_app_rs_rcvport : int16_t{0});
    return v2xipc_SocketReqSend(handle, g_ipc_conf, REPLY_WAIT_MS, &request, reply);
}

// Builds the IPC frame of a record and sends the frame to the stack application. Returns 0; -3 if the record is too
// long.
int32_t v2xspatconv_PackIpcSpatAndSendData(const v2xipc_phases_t* spat_ipc) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    uint8_t frame[FRAME_SIZE];
    uint16_t blockLength = 0;
    ret = spat_fill(frame + sizeof(v2xipc_dataHead_t), spat_ipc, &blockLength);
    if (ret != 0) {
        return ret;
    }
    v2xipc_dataHead_t head = v2xspatconv_MakeRequestHead(blockLength);
    head.m_sendTime64 = v2xpub_CommGetCurrentTime64();
    memcpy(frame, &head, sizeof head);
    const v2xpub_UdpSocketDataHead_t request = {static_cast<int16_t>(sizeof head + blockLength), frame};
    (SendToStack(g_udp_send_data_to_app_handle, request, nullptr) == 0 ? g_sent : g_notSent).Add();
    return ret;
}

} // namespace

v2xipc_dataHead_t v2xspatconv_MakeRequestHead(uint16_t packLen) {
    v2xipc_dataHead_t head = {};
    memcpy(head.m_headFlag, V2XIPC_HEAD_FLAG, sizeof head.m_headFlag);
    head.m_inc = V2XIPC_INC;
    head.m_cmdType = V2XIPC_CMD_TO_STACK;
    head.m_packLen = packLen;
    return head;
}

int32_t v2xspatconv_AskStack(const v2xpub_UdpSocketDataHead_t& request, v2xpub_UdpSocketDataHead_t& reply) {
    const int32_t ret = SendToStack(g_udp_get_app_data_handle, request, &reply);
    g_stackState = ret == 0 ? v2xspatconv_stackState::answers : v2xspatconv_stackState::silent;
    if (ret == 0) {
        g_lastAnswer = v2xpub_GetMonotonicTime();
    }
    return ret;
}

v2xspatconv_stackState v2xspatconv_GetStackState(void) {
    return g_stackState;
}

uint64_t v2xspatconv_GetLastAnswer(void) {
    return g_lastAnswer;
}

int32_t v2xspatconv_StackInterfaceInit(void) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    v2xipc_GetIpcConfValue(&g_ipc_conf);
    for (const SocketRow& row : SOCKETS) {
        const int32_t opened = OpenSocket(row);
        if (opened == 0) {
            continue;
        }
        if (row.callback != nullptr) {
            V2XLOG(g_log, V2XLOG_ERROR, "SocketInit LogTool error ret=%d", opened);
        } else {
            V2XLOG(g_log, V2XLOG_ERROR, "SocketInit error ret=%d", opened);
        }
        return ret = -3;
    }
    return ret;
}

int32_t v2xspatconv_SpatNotify(const v2xipc_phases_t* spat_ipc) {
    if (spat_ipc == nullptr) {
        return -2;
    }
    return v2xspatconv_PackIpcSpatAndSendData(spat_ipc);
}
