#include <algorithm>

#include "fakes.h"

struct v2xipc_socket {
    v2xpub_SocketInitPara_t para;
    std::string host;
    uint16_t port = 0;
};

namespace fakes {
std::function<void()> onRequest;
std::deque<std::vector<uint8_t>> replies;
int32_t ipcCfgInitResult = 0;
v2x_ipc_config_t ipcConf = IPC_DEFAULTS;
} // namespace fakes

namespace {
std::deque<v2xipc_socket> openSockets;
} // namespace

int32_t v2xipc_CfgInit(const char* workDir) {
    fakes::journal.push_back(std::string("ipc.CfgInit ") + workDir);
    return fakes::ipcCfgInitResult;
}

const char* v2xipc_GetCfgErrorText(void) {
    return "the port table's own reason";
}

void v2xipc_VisitSettings(v2xipc_settingFun visit, void* arg) {
    visit(arg, "ipc.hosts.RSU_RCV", fakes::ipcConf.m_rsu_rcv_ip, 0);
    visit(arg, "ipc.app_rs_rcvport", nullptr, fakes::ipcConf.m_app_rs_rcvport);
}

int32_t v2xipc_GetIpcConfValue(const v2x_ipc_config_t** conf) {
    *conf = &fakes::ipcConf;
    return 0;
}

int32_t v2xipc_SocketInit(V2X_IPCSOCKHANDLE* handle, const v2x_ipc_config_t*, const v2xpub_SocketInitPara_t* para) {
    fakes::journal.push_back(std::string("ipc.SocketInit ") + para->m_sockName);
    const int32_t result = fakes::socketResults[para->m_sockName];
    if (result == 0) {
        fakes::sockets.push_back(*para);
        *handle = &openSockets.emplace_back(v2xipc_socket{*para, "", 0});
    }
    return result;
}

int32_t v2xipc_SocketSetSendAddr(V2X_IPCSOCKHANDLE handle, const v2x_ipc_config_t*, const char* hostName,
                                 int16_t port) {
    handle->host = hostName;
    handle->port = static_cast<uint16_t>(port);
    return 0;
}

int32_t v2xipc_SocketReqSend(V2X_IPCSOCKHANDLE handle, const v2x_ipc_config_t*, int32_t,
                             const v2xpub_UdpSocketDataHead_t* request, v2xpub_UdpSocketDataHead_t* reply) {
    // A caller that hands in a reply buffer would wait for the stack application.
    const std::string host = handle->host + (reply != nullptr ? " (waits)" : "");
    fakes::sent.push_back(
        {handle->para.m_sockName, host, handle->port, {request->mp_data, request->mp_data + request->m_curMsgLen}});
    if (fakes::onRequest) {
        fakes::onRequest();
    }
    if (reply == nullptr) {
        return 0;
    }
    if (fakes::replies.empty()) {
        return -4;
    }
    const std::vector<uint8_t> bytes = fakes::replies.front();
    fakes::replies.pop_front();
    const size_t size = std::min(bytes.size(), static_cast<size_t>(reply->m_curMsgLen));
    std::copy_n(bytes.begin(), size, reply->mp_data);
    reply->m_curMsgLen = static_cast<int16_t>(size);
    return 0;
}

int32_t v2xipc_SocketRespSend(V2X_UDPSOCKHANDLE, const v2x_ipc_config_t*, const v2xpub_UdpSocketDataHead_t* response,
                              const void*, int16_t) {
    fakes::sent.push_back({"answer", "", 0, {response->mp_data, response->mp_data + response->m_curMsgLen}});
    return 0;
}
