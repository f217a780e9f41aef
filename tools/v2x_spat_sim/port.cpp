#include "port.h"

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <utility>

#include "v2x/v2xdds.h"

namespace sim {
namespace {

// The callback of the UDP port. Set before the receive thread starts, cleared after the thread has ended. Never freed,
// so that no thread can use a destroyed object at exit.
UdpPort::Receive& g_receive = *new UdpPort::Receive;

std::string DescribeError(int error) {
    return error != 0 ? std::strerror(error) : "unknown error";
}

v2xpub_UdpSocketDataHead_t MakeHead(std::span<uint8_t> datagram) {
    return {static_cast<int16_t>(datagram.size()), datagram.data()};
}

// Returns 0 if `result` is 0, otherwise the error number of the failed call.
int GetErrorNumber(int32_t result) {
    if (result == 0) {
        return 0;
    }
    return errno != 0 ? errno : EIO;
}

using Receivers = std::array<DdsPort::Receive, DdsPort::MAX_READ_TOPICS>;

// The callbacks of the DDS topics. Never freed, for the same reason.
Receivers& g_receivers = *new Receivers;

template <size_t INDEX>
void OnSample(void* data, unsigned int len) {
    g_receivers[INDEX](std::span(static_cast<const uint8_t*>(data), len));
}

constexpr std::array<dds_RecvCallback, DdsPort::MAX_READ_TOPICS> CALLBACKS = {OnSample<0>, OnSample<1>};

} // namespace

int UdpPort::Sender::Reply(std::span<uint8_t> datagram) const {
    const v2xpub_UdpSocketDataHead_t head = MakeHead(datagram);
    errno = 0;
    return GetErrorNumber(v2xpub_UdpSocketRespSend(m_handle, &head, m_address, m_size));
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
        throw std::runtime_error("cannot listen on UDP " + FormatEndpoint(local) + ": " + DescribeError(errno));
    }
}

UdpPort::~UdpPort() {
    Close();
    g_receive = nullptr;
}

void UdpPort::SetTarget(const Endpoint& target) {
    if (v2xpub_UdpSocketSetSendAddr(m_handle, target.ip.c_str(), target.port) != 0) {
        throw std::runtime_error("cannot send to UDP " + FormatEndpoint(target));
    }
}

int UdpPort::Send(std::span<uint8_t> datagram) {
    const v2xpub_UdpSocketDataHead_t head = MakeHead(datagram);
    errno = 0;
    return GetErrorNumber(v2xpub_UdpSocketReqSend(m_handle, &head));
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

DdsPort::DdsPort(int32_t domain, const std::vector<Topic>& topics) : m_handle(create_dds()) {
    size_t index = 0;
    for (const auto& [name, receive] : topics) {
        dds_RecvCallback callback = nullptr;
        if (receive) {
            g_receivers.at(index) = receive;
            callback = CALLBACKS[index++];
        }
        if (!dds_reg(m_handle, domain, name.c_str(), callback, 0)) {
            Close();
            throw std::runtime_error("cannot register the topic " + name + " on DDS domain " + std::to_string(domain));
        }
        set_history_qos(m_handle, name.c_str(), DDS_HISTORY_REAL_TIME, 0);
    }
    set_white_list_iface(m_handle, "127.0.0.1");
    if (!dds_start(m_handle)) {
        Close();
        throw std::runtime_error("cannot join DDS domain " + std::to_string(domain) + " on 127.0.0.1");
    }
}

DdsPort::~DdsPort() {
    Close();
}

bool DdsPort::HasReader(const std::string& topic) const {
    return get_match_cnt(m_handle, topic.c_str()) > 0;
}

bool DdsPort::Send(const std::string& topic, const std::string& bytes) {
    return dds_send(m_handle, topic.c_str(), bytes.data(), static_cast<uint32_t>(bytes.size())) == 0;
}

void DdsPort::Close() {
    destroy_dds(std::exchange(m_handle, nullptr));
    g_receivers = {};
}

} // namespace sim
