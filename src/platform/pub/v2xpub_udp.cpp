// Opens and closes UDP sockets and reads their counters.
#include "v2xpub_udp.h"

#include <arpa/inet.h>
#include <linux/sock_diag.h>
#include <sys/socket.h>

#include <cerrno>
#include <cstring>
#include <mutex>

#include "v2x/v2xlog.h"
#include "v2xpub_thread.h"

namespace {

constexpr int32_t SERVER_RECEIVE_BUFFER = 4 * 1024 * 1024;

v2xlog_tag_t g_log{"UDPA"};

// List of the open sockets, newest first. The list has no destructor, because threads use sockets while the process
// exits.
constinit std::mutex g_openLock;
constinit v2xpub_udpSocket* g_open = nullptr;

// Address and options of a socket.
struct Endpoint {
    std::string ip;
    in_addr address{};
    uint16_t port = 0;
    bool isServer = false;
    int32_t receiveBuffer = 0; // size in bytes; 0 means the kernel's default
};

void LogFailure(const v2xpub_udpSocket& socket, const Endpoint& endpoint, const char* reason) {
    V2XLOG(g_log, V2XLOG_ERROR, "cannot open socket %s at %s:%u: %s", socket.name.c_str(), endpoint.ip.c_str(),
           unsigned{endpoint.port}, reason);
}

Endpoint MakeEndpoint(const v2xpub_SocketInitPara_t& para, int32_t rcvBufBytes) {
    Endpoint endpoint;
    endpoint.ip = v2xpub_FieldText(para.m_localIP);
    endpoint.isServer = para.m_svrEnable != 0;
    endpoint.port = endpoint.isServer ? para.m_svrPort : para.m_cliPort;
    const bool useDefault = rcvBufBytes == 0 && endpoint.isServer;
    endpoint.receiveBuffer = useDefault ? SERVER_RECEIVE_BUFFER : rcvBufBytes;
    return endpoint;
}

// Converts the address of `endpoint`. Returns the reason to reject the parameters, or null if they are valid.
const char* FindFault(const v2xpub_SocketInitPara_t& para, Endpoint& endpoint) {
    if (para.m_svrEnable == 0 && para.m_cliEnable == 0) {
        return "m_svrEnable and m_cliEnable are 0";
    }
    if (endpoint.isServer && endpoint.port == 0) {
        return "m_svrPort is 0";
    }
    if (endpoint.receiveBuffer < 0) {
        return "the size of the receive buffer is negative";
    }
    if (inet_pton(AF_INET, endpoint.ip.c_str(), &endpoint.address) != 1) {
        return "the address is not a dotted IPv4 address";
    }
    return nullptr;
}

// Returns the size of the receive buffer in bytes. The kernel doubles the requested size for its own data and reports
// the doubled size.
int32_t GetReceiveBuffer(int fd) {
    int bytes = 0;
    socklen_t size = sizeof bytes;
    getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, &size);
    return bytes / 2;
}

void SetReceiveBuffer(const v2xpub_udpSocket& socket, int32_t requested) {
    // SO_RCVBUFFORCE exceeds net.core.rmem_max but needs CAP_NET_ADMIN.
    for (const int option : {SO_RCVBUF, SO_RCVBUFFORCE}) {
        setsockopt(socket.fd, SOL_SOCKET, option, &requested, sizeof requested);
        if (GetReceiveBuffer(socket.fd) >= requested) {
            return;
        }
    }
    V2XLOG(g_log, V2XLOG_INFO,
           "socket %s: receive buffer has %d bytes, but %d were requested; net.core.rmem_max limits the size",
           socket.name.c_str(), GetReceiveBuffer(socket.fd), requested);
}

// Creates the kernel's socket and binds it to the endpoint. Returns 0 or the error number.
int OpenAndBind(v2xpub_udpSocket& socket, const Endpoint& endpoint) {
    socket.fd = ::socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    if (socket.fd < 0) {
        return errno;
    }
    const int on = 1;
    setsockopt(socket.fd, SOL_SOCKET, SO_RXQ_OVFL, &on, sizeof on);
    if (endpoint.receiveBuffer > 0) {
        SetReceiveBuffer(socket, endpoint.receiveBuffer);
    }
    sockaddr_in local{};
    local.sin_family = AF_INET;
    local.sin_addr = endpoint.address;
    local.sin_port = htons(endpoint.port);
    if (bind(socket.fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) != 0) {
        return errno;
    }
    socklen_t size = sizeof local;
    getsockname(socket.fd, reinterpret_cast<sockaddr*>(&local), &size); // the kernel chooses the port if it was 0
    socket.local = v2xpub_ReadAddress(&local, sizeof local);
    return 0;
}

void AddToOpen(v2xpub_udpSocket& socket) {
    const std::lock_guard lock(g_openLock);
    socket.next = g_open;
    g_open = &socket;
}

void RemoveFromOpen(const v2xpub_udpSocket& socket) {
    const std::lock_guard lock(g_openLock);
    v2xpub_udpSocket** link = &g_open;
    while (*link != &socket) {
        link = &(*link)->next;
    }
    *link = socket.next;
}

// Counts the drops after the last received datagram. A received datagram reports only the drops before it.
void FetchKernelDrops(v2xpub_udpSocket& socket) {
    uint32_t values[SK_MEMINFO_VARS]{};
    socklen_t size = sizeof values;
    if (getsockopt(socket.fd, SOL_SOCKET, SO_MEMINFO, values, &size) == 0 && size > SK_MEMINFO_DROPS * sizeof *values) {
        v2xpub_CountKernelDrops(socket, values[SK_MEMINFO_DROPS]);
    }
}

} // namespace

int32_t v2xpub_UdpSocketInit(V2X_UDPSOCKHANDLE* handle, const v2xpub_SocketInitPara_t* para, int32_t rcvBufBytes) {
    if (handle == nullptr || para == nullptr) {
        return -2;
    }
    auto socket = std::make_unique<v2xpub_udpSocket>();
    socket->name = v2xpub_FieldText(para->m_sockName);
    socket->senders = para->m_senders;
    socket->peer = para->m_peer;
    socket->sendersKey = para->m_sendersKey;
    Endpoint endpoint = MakeEndpoint(*para, rcvBufBytes);
    if (const char* fault = FindFault(*para, endpoint); fault != nullptr) {
        LogFailure(*socket, endpoint, fault);
        return -2;
    }
    const bool hasThread = endpoint.isServer && para->f_msgFunc != nullptr;
    if (hasThread) {
        socket->callback = para->f_msgFunc;
        socket->buffer = std::make_unique_for_overwrite<uint8_t[]>(V2XPUB_BATCH * V2XPUB_SLOT);
    }
    // Store the handle before the thread starts, because the callback may read the caller's handle.
    auto* const previousHandle = *handle;
    int error = OpenAndBind(*socket, endpoint);
    if (error == 0) {
        *handle = socket.get();
        if (hasThread) {
            error = v2xpub_StartThread(&socket->thread, socket->name.c_str(), v2xpub_scheduling{},
                                       v2xpub_UdpReceiveThread, socket.get());
        }
    }
    if (error != 0) {
        *handle = previousHandle;
        LogFailure(*socket, endpoint, std::strerror(error));
        errno = error;
        return -3;
    }
    if (endpoint.isServer) {
        V2XLOG(g_log, V2XLOG_INFO, "socket %s: receives at %s:%u", socket->name.c_str(), endpoint.ip.c_str(),
               unsigned{endpoint.port});
    }
    AddToOpen(*socket.release()); // v2xpub_UdpSocketExit frees the socket
    return 0;
}

int32_t v2xpub_UdpSocketExit(V2X_UDPSOCKHANDLE handle) {
    if (handle == nullptr) {
        return 0;
    }
    if (handle->buffer != nullptr) {
        handle->isStopping.store(true, std::memory_order_release);
        // On Linux shutdown() wakes the receive thread, although it fails with ENOTCONN for an unconnected socket.
        shutdown(handle->fd, SHUT_RD);
        if (pthread_join(handle->thread, nullptr) != 0) {
            return -2; // the callback is the caller: the thread ends, and the socket is never freed
        }
    }
    RemoveFromOpen(*handle);
    delete handle;
    return 0;
}

int32_t v2xpub_UdpSocketGetStats(V2X_UDPSOCKHANDLE handle, v2xpub_UdpSocketStats_t* stats) {
    if (handle == nullptr || stats == nullptr) {
        return -2;
    }
    FetchKernelDrops(*handle);
    stats->received = handle->received.load(std::memory_order_relaxed);
    stats->tooLong = handle->tooLong.load(std::memory_order_relaxed);
    stats->kernelDrops = handle->kernelDrops.load(std::memory_order_relaxed);
    stats->sent = handle->sent.load(std::memory_order_relaxed);
    stats->sendErrors = handle->sendErrors.load(std::memory_order_relaxed);
    stats->refusedSender = handle->refusedSender.load(std::memory_order_relaxed);
    return 0;
}

void v2xpub_UdpSocketVisitStats(v2xpub_statsFun visit, void* arg) {
    const std::lock_guard lock(g_openLock);
    for (v2xpub_udpSocket* socket = g_open; socket != nullptr; socket = socket->next) {
        v2xpub_UdpSocketStats_t stats{};
        v2xpub_UdpSocketGetStats(socket, &stats);
        visit(arg, socket->name.c_str(), &stats);
    }
}
