// Request sockets between the processes of the road-side unit, built on the UDP sockets of v2xpub.
#include <array>
#include <cstring>
#include <memory>
#include <mutex>

#include "v2x/v2xcount.h"
#include "v2x/v2xipc.h"

namespace {

v2x_counter g_lateReplies{"ipc", "late_replies"};

// Maximum number of late replies to discard before a request, so that a flood of late replies cannot block the request.
constexpr int32_t LATE_REPLIES_MAX = 1024;

} // namespace

struct v2xipc_socket {
    V2X_UDPSOCKHANDLE udp = nullptr;
    std::mutex replyMutex;                       // locked while a thread waits for a reply
    std::array<uint8_t, INT16_MAX> lateBuffer{}; // buffer for late replies; guarded by replyMutex
};

namespace {

void DiscardLateReplies(v2xipc_socket& socket) {
    for (int32_t count = 0; count < LATE_REPLIES_MAX; ++count) {
        v2xpub_UdpSocketDataHead_t lateReply{INT16_MAX, socket.lateBuffer.data()};
        if (v2xpub_UdpSocketRecv(socket.udp, &lateReply, 0) != 0) {
            return;
        }
        g_lateReplies.Add();
    }
}

int32_t RequestAndWait(v2xipc_socket& socket, int32_t timeoutMs, const v2xpub_UdpSocketDataHead_t& request,
                       v2xpub_UdpSocketDataHead_t& reply) {
    const std::lock_guard lock(socket.replyMutex);
    DiscardLateReplies(socket);
    const int32_t result = v2xpub_UdpSocketReqSend(socket.udp, &request);
    if (result != 0) {
        return result;
    }
    return v2xpub_UdpSocketRecv(socket.udp, &reply, timeoutMs) == 0 ? 0 : -4;
}

} // namespace

int32_t v2xipc_SocketInit(V2X_IPCSOCKHANDLE* handle, const v2x_ipc_config_t* conf,
                          const v2xpub_SocketInitPara_t* para) {
    if (handle == nullptr || conf == nullptr) {
        return -2;
    }
    auto socket = std::make_unique<v2xipc_socket>();
    const int32_t result = v2xpub_UdpSocketInit(&socket->udp, para, 0);
    if (result == 0) {
        *handle = socket.release();
    }
    return result;
}

int32_t v2xipc_SocketSetSendAddr(V2X_IPCSOCKHANDLE handle, const v2x_ipc_config_t* conf, const char* hostName,
                                 int16_t port) {
    if (handle == nullptr || conf == nullptr || hostName == nullptr || std::strcmp(hostName, "RSU_RCV") != 0) {
        return -2;
    }
    return v2xpub_UdpSocketSetSendAddr(handle->udp, conf->m_rsu_rcv_ip, static_cast<uint16_t>(port));
}

int32_t v2xipc_SocketReqSend(V2X_IPCSOCKHANDLE handle, const v2x_ipc_config_t* conf, int32_t timeoutMs,
                             const v2xpub_UdpSocketDataHead_t* request, v2xpub_UdpSocketDataHead_t* reply) {
    if (handle == nullptr || conf == nullptr || request == nullptr) {
        return -2;
    }
    if (reply == nullptr) {
        return v2xpub_UdpSocketReqSend(handle->udp, request);
    }
    if (reply->mp_data == nullptr || reply->m_curMsgLen < 0 || timeoutMs < 0) {
        return -2;
    }
    return RequestAndWait(*handle, timeoutMs, *request, *reply);
}

int32_t v2xipc_SocketRespSend(V2X_UDPSOCKHANDLE handle, const v2x_ipc_config_t* conf,
                              const v2xpub_UdpSocketDataHead_t* response, const void* addr, int16_t addrLen) {
    return conf == nullptr ? -2 : v2xpub_UdpSocketRespSend(handle, response, addr, addrLen);
}
