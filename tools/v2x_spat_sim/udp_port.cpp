#include "udp_port.h"

#include <atomic>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

namespace sim {
namespace {

// Set before the receive thread starts and emptied after its end; leaked on purpose: it outlives every thread.
UdpPort::Receive& g_receive = *new UdpPort::Receive;

std::string Reason(int error) {
    return error != 0 ? std::strerror(error) : "no reason given";
}

v2xpub_UdpSocketDataHead_t Head(std::span<uint8_t> datagram) {
    return {static_cast<int16_t>(datagram.size()), datagram.data()};
}

// Of the call that came back with this result.
int ErrorOf(int32_t result) {
    if (result == 0) {
        return 0;
    }
    return errno != 0 ? errno : EIO;
}

} // namespace

int UdpPort::Sender::Reply(std::span<uint8_t> datagram) const {
    const v2xpub_UdpSocketDataHead_t head = Head(datagram);
    errno = 0;
    return ErrorOf(v2xpub_UdpSocketRespSend(m_handle, &head, m_address, m_size));
}

void UdpPort::OnDatagram(V2X_UDPSOCKHANDLE handle, void* data, void* addr, int16_t addrLen) {
    const auto* head = static_cast<const v2xpub_UdpSocketDataHead_t*>(data);
    g_receive(std::span(head->mp_data, static_cast<size_t>(head->m_curMsgLen)), Sender(handle, addr, addrLen));
}

UdpPort::UdpPort(const char* name, const Endpoint& local, Receive receive) {
    v2xpub_SocketInitPara_t para{};
    std::strncpy(para.m_sockName, name, sizeof para.m_sockName - 1);
    std::strncpy(para.m_localIP, local.ip.c_str(), sizeof para.m_localIP - 1);
    para.m_svrPort = local.port;
    para.m_svrEnable = 1;
    para.m_cliEnable = 1;
    para.f_msgFunc = OnDatagram;
    g_receive = std::move(receive);
    errno = 0;
    if (v2xpub_UdpSocketInit(&m_handle, &para, 0) != 0) {
        throw std::runtime_error("cannot listen on UDP " + EndpointText(local) + ": " + Reason(errno));
    }
}

UdpPort::~UdpPort() {
    Close();
    g_receive = nullptr;
}

void UdpPort::SetTarget(const Endpoint& target) {
    if (v2xpub_UdpSocketSetSendAddr(m_handle, target.ip.c_str(), target.port) != 0) {
        throw std::runtime_error("cannot send to UDP " + EndpointText(target));
    }
}

int UdpPort::Send(std::span<uint8_t> datagram) {
    const v2xpub_UdpSocketDataHead_t head = Head(datagram);
    errno = 0;
    return ErrorOf(v2xpub_UdpSocketReqSend(m_handle, &head));
}

v2xpub_UdpSocketStats_t UdpPort::Stats() const {
    v2xpub_UdpSocketStats_t stats = m_lastStats;
    v2xpub_UdpSocketGetStats(m_handle, &stats);
    return stats;
}

void UdpPort::Close() {
    m_lastStats = Stats();
    v2xpub_UdpSocketExit(m_handle);
    m_handle = nullptr;
}

} // namespace sim
