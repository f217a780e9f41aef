// Receives datagrams: the receive thread of a server, and v2xpub_UdpSocketRecv.
#include <poll.h>
#include <sys/socket.h>

#include <cerrno>
#include <cinttypes>
#include <cstring>
#include <ctime>

#include "v2x/v2xlog.h"
#include "v2x/v2xwatch.h"
#include "v2xpub_thread.h"
#include "v2xpub_udp.h"

namespace {

using Clock = std::chrono::steady_clock;

v2xlog_tag_t g_log{"UDPA"};

constexpr int64_t NANOSECONDS = 1'000'000'000;
constexpr timespec ERROR_PAUSE{0, 100'000'000};
// Maximum number of datagrams that v2xpub_UdpSocketRecv drops after its deadline, so that a flood of oversized or
// refused datagrams cannot block the caller.
constexpr int32_t LATE_DROPS_MAX = 1024;

// Destination of a received datagram.
struct Target {
    uint8_t* data;
    size_t size;
    sockaddr_in* sender;
};

// Logs the number of drops if it has changed, but at most once in ten seconds.
void LogKernelDrops(v2xpub_udpSocket& socket) {
    const uint64_t count = socket.kernelDrops.load(std::memory_order_relaxed);
    if (count != socket.kernelDropsLogged.load(std::memory_order_relaxed) && socket.kernelDropsLog.Pass()) {
        socket.kernelDropsLogged.store(count, std::memory_order_relaxed);
        V2XLOG(g_log, V2XLOG_WARN,
               "socket %s: receive buffer full, the kernel dropped %" PRIu64 " datagrams since it was opened",
               socket.name.c_str(), count);
    }
}

// Receives one datagram. Returns its length, which may exceed the target's size, or -1 and errno.
ssize_t Receive(v2xpub_udpSocket& socket, const Target& target, int flags) {
    iovec part{target.data, target.size};
    alignas(cmsghdr) uint8_t control[CMSG_SPACE(sizeof(uint32_t))];
    msghdr message{};
    message.msg_name = target.sender;
    message.msg_namelen = sizeof *target.sender;
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control;
    message.msg_controllen = sizeof control;
    const ssize_t length = recvmsg(socket.fd, &message, flags | MSG_TRUNC);
    const cmsghdr* header = length >= 0 ? CMSG_FIRSTHDR(&message) : nullptr;
    if (header != nullptr && header->cmsg_level == SOL_SOCKET && header->cmsg_type == SO_RXQ_OVFL) {
        uint32_t total = 0;
        std::memcpy(&total, CMSG_DATA(header), sizeof total);
        v2xpub_CountKernelDrops(socket, total);
        LogKernelDrops(socket);
    }
    return length;
}

void CountRefused(v2xpub_udpSocket& socket, uint32_t ip) {
    const uint64_t count = v2xpub_Increment(socket.refusedSender);
    if (socket.refusedLog.Pass(ip, Clock::now())) {
        V2XLOG(g_log, V2XLOG_WARN, "%s: datagram from %s refused, not in %s (%" PRIu64 " so far)", socket.peer,
               v2xpub_FormatIp({ip, 0}).text, socket.sendersKey, count);
    }
}

void CountTooLong(v2xpub_udpSocket& socket, ssize_t length, size_t limit) {
    const uint64_t count = v2xpub_Increment(socket.tooLong);
    if (socket.tooLongLog.Pass()) {
        V2XLOG(g_log, V2XLOG_WARN,
               "socket %s: dropped a datagram of %zd bytes, longer than %zu (%" PRIu64 " since it was opened)",
               socket.name.c_str(), length, limit, count);
    }
}

// Returns true if the filter accepts the sender and the length is at most `limit`. Counts any other datagram.
bool IsDeliverable(v2xpub_udpSocket& socket, const sockaddr_in& sender, ssize_t length, size_t limit) {
    const uint32_t ip = ntohl(sender.sin_addr.s_addr);
    if (!v2xpub_IsSender(socket.senders, ip)) {
        CountRefused(socket, ip);
        return false;
    }
    if (length > static_cast<ssize_t>(limit)) {
        CountTooLong(socket, length, limit);
        return false;
    }
    return true;
}

void LogReceiveError(v2xpub_udpSocket& socket, int error) {
    if (socket.receiveErrorLog.Pass()) {
        V2XLOG(g_log, V2XLOG_WARN, "socket %s: cannot receive: %s", socket.name.c_str(), std::strerror(error));
    }
}

bool IsTransient(int error) {
    return error == EINTR || error == EAGAIN || error == ECONNREFUSED;
}

void Deliver(v2xpub_udpSocket& socket, ssize_t length, sockaddr_in& sender) {
    if (!IsDeliverable(socket, sender, length, V2XPUB_DATAGRAM_MAX)) {
        return;
    }
    v2xpub_Increment(socket.received);
    v2xpub_Tap(socket, false, sender, socket.buffer.get(), length);
    v2xpub_UdpSocketDataHead_t head{static_cast<int16_t>(length), socket.buffer.get()};
    socket.callback(&socket, &head, &sender, sizeof sender);
}

// Waits until a datagram arrives or the deadline passes. Returns false if the deadline has already passed at the call.
bool WaitReadable(int fd, Clock::time_point deadline) {
    const int64_t left = std::chrono::nanoseconds(deadline - Clock::now()).count();
    if (left <= 0) {
        return false;
    }
    pollfd entry{fd, POLLIN, 0};
    const timespec wait{left / NANOSECONDS, left % NANOSECONDS};
    ppoll(&entry, 1, &wait, nullptr); // the result is ignored: the caller tries to receive again
    return true;
}

// Receives the next datagram of an accepted sender that fits into the target, and stores its length. Returns 0, 1 or
// -3 as v2xpub_UdpSocketRecv does.
int32_t ReceiveUntil(v2xpub_udpSocket& socket, const Target& target, Clock::time_point deadline, ssize_t& length) {
    for (int32_t lateDrops = 0; lateDrops < LATE_DROPS_MAX;) {
        length = Receive(socket, target, MSG_DONTWAIT);
        const int error = errno;
        if (length >= 0) {
            if (IsDeliverable(socket, *target.sender, length, target.size)) {
                return 0;
            }
            lateDrops += Clock::now() >= deadline ? 1 : 0;
        } else if (!IsTransient(error)) {
            LogReceiveError(socket, error);
            return -3;
        } else if (error == EAGAIN && !WaitReadable(socket.fd, deadline)) {
            return 1;
        }
    }
    return 1;
}

} // namespace

void v2xpub_CountKernelDrops(v2xpub_udpSocket& socket, uint32_t total) {
    // Ignore `total` if another thread has already counted a newer value.
    uint32_t seen = socket.kernelDropsSeen.load(std::memory_order_relaxed);
    while (static_cast<int32_t>(total - seen) > 0) {
        if (socket.kernelDropsSeen.compare_exchange_weak(seen, total, std::memory_order_relaxed)) {
            socket.kernelDrops.fetch_add(total - seen, std::memory_order_relaxed);
            break;
        }
    }
}

void* v2xpub_UdpReceiveThread(void* arg) {
    v2xpub_udpSocket& socket = *static_cast<v2xpub_udpSocket*>(arg);
    v2xpub_NameThread(socket.name);
    sockaddr_in sender{};
    const Target target{socket.buffer.get(), V2XPUB_RECEIVE_BUFFER, &sender};
    v2x_watchedThread thread(socket.name);
    while (true) {
        thread.Wait();
        const ssize_t length = Receive(socket, target, 0);
        const int error = errno;
        thread.Work();
        // After shutdown() each recvmsg returns an empty datagram. Only the flag shows that the socket is shut down.
        if (socket.isStopping.load(std::memory_order_acquire)) {
            return nullptr;
        }
        if (length >= 0) {
            Deliver(socket, length, sender);
        } else if (!IsTransient(error)) {
            LogReceiveError(socket, error);
            nanosleep(&ERROR_PAUSE, nullptr);
        }
    }
}

int32_t v2xpub_UdpSocketRecv(V2X_UDPSOCKHANDLE handle, v2xpub_UdpSocketDataHead_t* data, int32_t timeoutMs) {
    if (handle == nullptr || handle->buffer != nullptr || data == nullptr || data->mp_data == nullptr ||
        data->m_curMsgLen < 0 || timeoutMs < 0) {
        return -2;
    }
    const auto deadline = Clock::now() + std::chrono::milliseconds(timeoutMs);
    sockaddr_in sender{};
    const Target target{data->mp_data, static_cast<size_t>(data->m_curMsgLen), &sender};
    ssize_t length = 0;
    const int32_t result = ReceiveUntil(*handle, target, deadline, length);
    if (result == 0) {
        data->m_curMsgLen = static_cast<int16_t>(length);
        v2xpub_Increment(handle->received);
        v2xpub_Tap(*handle, false, sender, data->mp_data, length);
    }
    return result;
}
