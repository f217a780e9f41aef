#include <netinet/in.h>

#include "fakes.h"

struct v2xpub_task {};

struct v2xpub_udpSocket {
    v2xpub_SocketInitPara_t para;
    std::string ip;
    uint16_t port = 0;
};

namespace fakes {

uint64_t now = 0;
uint64_t monotonic = 0;
int clockReads = 0;
std::vector<Task> tasks;
size_t maxTasks = SIZE_MAX;
std::vector<Datagram> sent;
std::vector<v2xpub_SocketInitPara_t> sockets;
std::map<std::string, int32_t> socketResults;
std::map<std::string, v2xpub_UdpSocketStats_t> socketStats;

void receive(const std::string& socketName, const std::vector<uint8_t>& bytes, v2xpub_address_t sender) {
    sockaddr_in address = {AF_INET, htons(sender.port), {htonl(sender.ip)}, {}};
    std::vector<uint8_t> exact(bytes); // heap buffer of the exact size, so that a sanitizer detects a read past its end
    uint8_t placeholder = 0;           // an empty datagram still needs a non-null pointer
    v2xpub_UdpSocketDataHead_t datagram = {static_cast<int16_t>(exact.size()),
                                           exact.empty() ? &placeholder : exact.data()};
    for (const v2xpub_SocketInitPara_t& para : sockets) {
        if (socketName == para.m_sockName && para.f_msgFunc != nullptr) {
            para.f_msgFunc(nullptr, &datagram, &address, sizeof address);
        }
    }
}

} // namespace fakes

namespace {
std::deque<v2xpub_udpSocket> openSockets;
v2xpub_task task;
} // namespace

int32_t v2xpub_PubSubInit(void) {
    fakes::journal.emplace_back("pub.PubSubInit");
    return 0;
}

uint64_t v2xpub_CommGetCurrentTime64(void) {
    fakes::clockReads++;
    return fakes::now;
}

uint64_t v2xpub_GetMonotonicTime(void) {
    return fakes::monotonic;
}

int32_t v2xpub_TaskCreate(V2X_TASKHANDLE* handle, const v2xpub_TaskInitPara_t* para) {
    fakes::journal.push_back(std::string("pub.TaskCreate ") + para->m_taskName);
    if (fakes::tasks.size() >= fakes::maxTasks) {
        return -3;
    }
    *handle = &task;
    fakes::tasks.push_back({*para});
    return 0;
}

int32_t v2xpub_TaskDelete(V2X_TASKHANDLE) {
    fakes::journal.emplace_back("pub.TaskDelete");
    return 0;
}

int32_t v2xpub_UdpSocketInit(V2X_UDPSOCKHANDLE* handle, const v2xpub_SocketInitPara_t* para, int32_t) {
    fakes::journal.push_back(std::string("pub.UdpSocketInit ") + para->m_sockName);
    const int32_t result = fakes::socketResults[para->m_sockName];
    if (result == 0) {
        fakes::sockets.push_back(*para);
        *handle = &openSockets.emplace_back(v2xpub_udpSocket{*para, "", 0});
    }
    return result;
}

int32_t v2xpub_UdpSocketSetSendAddr(V2X_UDPSOCKHANDLE handle, const char* ip, uint16_t port) {
    handle->ip = ip;
    handle->port = port;
    return port == 0 ? -2 : 0;
}

int32_t v2xpub_UdpSocketReqSend(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t* data) {
    fakes::sent.push_back(
        {handle->para.m_sockName, handle->ip, handle->port, {data->mp_data, data->mp_data + data->m_curMsgLen}});
    return 0;
}

void v2xpub_UdpSocketVisitStats(v2xpub_statsFun visit, void* arg) {
    for (const auto& [name, stats] : fakes::socketStats) {
        visit(arg, name.c_str(), &stats);
    }
}
