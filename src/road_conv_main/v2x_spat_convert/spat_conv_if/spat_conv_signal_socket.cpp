#include "spat_conv_signal_socket.h"

#include <cstdio>

V2X_UDPSOCKHANDLE v2xspatconv_OpenSignalSocket(v2xlog_tag_t& tag, const v2xpub_SocketInitPara_t& para) {
    V2X_UDPSOCKHANDLE handle = nullptr;
    const int32_t ret = v2xpub_UdpSocketInit(&handle, &para, 0);
    if (ret != 0) {
        V2XLOG(tag, V2XLOG_ERROR, "v2xpub_UdpSocketInit end ret=%d", ret);
        return nullptr;
    }
    return handle;
}

bool v2xspatconv_OpenReceiveSocket(v2xlog_tag_t& tag, const v2xspatconv_receiveSocket_t& socket,
                                   const v2xspatconv_guard_t& guard) {
    const v2xspatconv_sourceGuard_t& settings = guard.m_sources[socket.source];
    v2xpub_SocketInitPara_t para = {};
    snprintf(para.m_sockName, sizeof para.m_sockName, "%s", V2XSPATCONV_SOCKET_NAMES[socket.source]);
    const bool hasLocalIp = settings.m_local_ip[0] != '\0';
    snprintf(para.m_localIP, sizeof para.m_localIP, "%s", hasLocalIp ? settings.m_local_ip : "0.0.0.0");
    para.m_svrPort = static_cast<uint16_t>(socket.device.m_local_port);
    para.m_svrEnable = 1;
    para.f_msgFunc = socket.callback;
    para.m_senders = settings.m_only_from;
    para.m_peer = V2XSPATCONV_SOURCE_NAMES[socket.source];
    para.m_sendersKey = "OnlyFrom";
    if (v2xspatconv_OpenSignalSocket(tag, para) == nullptr) {
        return false;
    }
    if (para.m_senders.count == 0) {
        V2XLOG(tag, V2XLOG_WARN, "%s: OnlyFrom is not set, datagrams of any sender are accepted", para.m_peer);
    }
    return true;
}
