// Opening, closing and counters of UDP sockets.
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

// The open sockets, newest first. Plain pointers without a destructor: threads still count while the process exits.
constinit std::mutex g_openLock;
constinit v2xpub_udpSocket* g_open = nullptr;

// Address and options of a socket.
struct Endpoint {
    std::string ip;
    in_addr address{};
    uint16_t port = 0;
    bool isServer = false;
    int32_t receiveBuffer = 0; // 0 = the kernel's own size
};

void LogFailure(const v2xpub_udpSocket& socket, const Endpoint& endpoint, const char* reason) {
    V2XLOG(g_log, V2XLOG_ERROR, "socket %s at %s:%u: %s", socket.name.c_str(), endpoint.ip.c_str(),
           unsigned{endpoint.port}, reason);
}

Endpoint EndpointOf(const v2xpub_SocketInitPara_t& para, int32_t rcvBufBytes) {
    Endpoint endpoint;
    endpoint.ip = v2xpub_FieldText(para.m_localIP);
    endpoint.isServer = para.m_svrEnable != 0;
    endpoint.port = endpoint.isServer ? para.m_svrPort : para.m_cliPort;
    const bool useDefault = rcvBufBytes == 0 && endpoint.isServer;
    endpoint.receiveBuffer = useDefault ? SERVER_RECEIVE_BUFFER : rcvBufBytes;
    return endpoint;
}

// The reason to reject the parameters, or null. Converts the address.
const char* FaultOf(const v2xpub_SocketInitPara_t& para, Endpoint& endpoint) {
    if (para.m_svrEnable == 0 && para.m_cliEnable == 0) {
        return "neither server nor client";
    }
    if (endpoint.isServer && endpoint.port == 0) {
        return "no port to receive on (m_svrPort is 0)";
    }
    if (endpoint.receiveBuffer < 0) {
        return "negative receive buffer";
    }
    if (inet_pton(AF_INET, endpoint.ip.c_str(), &endpoint.address) != 1) {
        return "not a dotted IPv4 address";
    }
    return nullptr;
}

// The kernel doubles the requested size for its bookkeeping and reports the double.
int32_t ReceiveBufferOf(int fd) {
    int bytes = 0;
    socklen_t size = sizeof bytes;
    getsockopt(fd, SOL_SOCKET, SO_RCVBUF, &bytes, &size);
    return bytes / 2;
}

void SetReceiveBuffer(const v2xpub_udpSocket& socket, int32_t requested) {
    // SO_RCVBUFFORCE exceeds net.core.rmem_max but needs CAP_NET_ADMIN.
    for (const int option : {SO_RCVBUF, SO_RCVBUFFORCE}) {
        setsockopt(socket.fd, SOL_SOCKET, option, &requested, sizeof requested);
        if (ReceiveBufferOf(socket.fd) >= requested) {
            return;
        }
    }
    V2XLOG(g_log, V2XLOG_INFO, "socket %s: receive buffer of %d bytes, %d requested (net.core.rmem_max)",
           socket.name.c_str(), ReceiveBufferOf(socket.fd), requested);
}

// Returns 0 or the error number.
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
    return bind(socket.fd, reinterpret_cast<const sockaddr*>(&local), sizeof local) == 0 ? 0 : errno;
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

// Received datagrams report earlier drops only: this reads the drops after the last one.
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
    Endpoint endpoint = EndpointOf(*para, rcvBufBytes);
    if (const char* fault = FaultOf(*para, endpoint); fault != nullptr) {
        LogFailure(*socket, endpoint, fault);
        return -2;
    }
    const bool hasThread = endpoint.isServer && para->f_msgFunc != nullptr;
    if (hasThread) {
        socket->callback = para->f_msgFunc;
        socket->buffer = std::make_unique_for_overwrite<uint8_t[]>(V2XPUB_RECEIVE_BUFFER);
    }
    // The callback may read the caller's handle as soon as the thread runs.
    auto* const before = *handle;
    int error = OpenAndBind(*socket, endpoint);
    if (error == 0) {
        *handle = socket.get();
        if (hasThread) {
            error = v2xpub_StartThread(&socket->thread, socket->name.c_str(), v2xpub_scheduling{},
                                       v2xpub_UdpReceiveThread, socket.get());
        }
    }
    if (error != 0) {
        *handle = before;
        LogFailure(*socket, endpoint, std::strerror(error));
        errno = error;
        return -3;
    }
    if (endpoint.isServer) {
        V2XLOG(g_log, V2XLOG_INFO, "socket %s: receives at %s:%u", socket->name.c_str(), endpoint.ip.c_str(),
               unsigned{endpoint.port});
    }
    AddToOpen(*socket.release()); // v2xpub_UdpSocketExit frees it
    return 0;
}

int32_t v2xpub_UdpSocketExit(V2X_UDPSOCKHANDLE handle) {
    if (handle == nullptr) {
        return 0;
    }
    if (handle->buffer != nullptr) {
        handle->stop.store(true, std::memory_order_release);
        // Linux wakes the receiver of an unconnected socket, although the call reports ENOTCONN.
        shutdown(handle->fd, SHUT_RD);
        if (pthread_join(handle->thread, nullptr) != 0) {
            return -2; // called by the callback: the thread ends, and the socket is not freed
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
