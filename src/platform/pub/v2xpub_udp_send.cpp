// Sends datagrams, each with one system call and without a lock.
#include <arpa/inet.h>
#include <sys/socket.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>

#include "v2x/v2xlog.h"
#include "v2xpub_udp.h"

namespace {

v2xlog_tag_t g_log{"UDPA"};

constexpr int PORT_BITS = 16;

sockaddr_in UnpackAddress(uint64_t destination) {
    sockaddr_in to{};
    to.sin_family = AF_INET;
    to.sin_addr.s_addr = static_cast<in_addr_t>(destination >> PORT_BITS);
    to.sin_port = htons(static_cast<uint16_t>(destination));
    return to;
}

bool IsSendable(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t* data) {
    return handle != nullptr && data != nullptr && data->m_curMsgLen >= 0 &&
           (data->mp_data != nullptr || data->m_curMsgLen == 0);
}

int32_t CountSendError(v2xpub_udpSocket& socket, const sockaddr_in& to, int error) {
    const uint64_t count = v2xpub_Increment(socket.sendErrors);
    if (socket.sendErrorLog.Pass()) {
        char ip[INET_ADDRSTRLEN] = "";
        inet_ntop(AF_INET, &to.sin_addr, ip, sizeof ip);
        V2XLOG(g_log, V2XLOG_WARN, "socket %s: cannot send to %s:%u: %s (%" PRIu64 " since it was opened)",
               socket.name.c_str(), ip, unsigned{ntohs(to.sin_port)}, std::strerror(error), count);
    }
    errno = error;
    return -3;
}

int32_t SendTo(v2xpub_udpSocket& socket, const v2xpub_UdpSocketDataHead_t& data, const sockaddr_in& to) {
    ssize_t result = 0;
    do {
        result = sendto(socket.fd, data.mp_data, static_cast<size_t>(data.m_curMsgLen), MSG_DONTWAIT | MSG_NOSIGNAL,
                        reinterpret_cast<const sockaddr*>(&to), sizeof to);
    } while (result < 0 && errno == EINTR);
    if (result < 0) {
        return CountSendError(socket, to, errno);
    }
    v2xpub_Increment(socket.sent);
    v2xpub_Tap(socket, true, to, data.mp_data, result);
    return 0;
}

} // namespace

int32_t v2xpub_UdpSocketSetSendAddr(V2X_UDPSOCKHANDLE handle, const char* ip, uint16_t port) {
    in_addr address{};
    if (handle == nullptr || ip == nullptr || port == 0 || inet_pton(AF_INET, ip, &address) != 1) {
        return -2;
    }
    handle->destination.store(uint64_t{address.s_addr} << PORT_BITS | port, std::memory_order_relaxed);
    return 0;
}

int32_t v2xpub_UdpSocketReqSend(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t* data) {
    if (!IsSendable(handle, data)) {
        return -2;
    }
    const uint64_t destination = handle->destination.load(std::memory_order_relaxed);
    return destination == 0 ? -2 : SendTo(*handle, *data, UnpackAddress(destination));
}

int32_t v2xpub_UdpSocketRespSend(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t* data, const void* addr,
                                 int16_t addrLen) {
    sockaddr_in to{};
    if (!IsSendable(handle, data) || addr == nullptr || addrLen < static_cast<int16_t>(sizeof to)) {
        return -2;
    }
    std::memcpy(&to, addr, sizeof to);
    return to.sin_family == AF_INET ? SendTo(*handle, *data, to) : -2;
}
