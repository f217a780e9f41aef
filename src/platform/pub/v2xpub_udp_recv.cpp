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

// Receives up to N datagrams with one system call.
template <size_t N>
class Batch {
public:
    // `size` bytes at `data` + n * `size` are for datagram n.
    Batch(uint8_t* data, size_t size) {
        for (size_t i = 0; i < N; i++) {
            m_parts[i] = {data + i * size, size};
            msghdr& head = m_messages[i].msg_hdr;
            head.msg_name = &m_senders[i];
            head.msg_iov = &m_parts[i];
            head.msg_iovlen = 1;
            head.msg_control = m_control[i];
        }
    }
    Batch(const Batch&) = delete;
    Batch& operator=(const Batch&) = delete;

    // Returns the number of datagrams, or -1 and errno. Counts what the kernel has dropped.
    int Receive(v2xpub_udpSocket& socket, int flags) {
        for (mmsghdr& message : m_messages) { // the kernel has changed these lengths
            message.msg_hdr.msg_namelen = sizeof *m_senders;
            message.msg_hdr.msg_controllen = sizeof *m_control;
        }
        const int count = recvmmsg(socket.fd, m_messages, N, flags | MSG_TRUNC, nullptr);
        if (count > 0) {
            ReadKernelDrops(socket, m_messages[count - 1].msg_hdr);
        }
        return count;
    }

    uint8_t* Data(int i) const { return static_cast<uint8_t*>(m_parts[i].iov_base); }
    // The length may exceed the size of the buffer: the rest of the datagram is lost.
    ssize_t Length(int i) const { return m_messages[i].msg_len; }
    sockaddr_in& Sender(int i) { return m_senders[i]; }

private:
    static void ReadKernelDrops(v2xpub_udpSocket& socket, msghdr& head) {
        const cmsghdr* part = CMSG_FIRSTHDR(&head);
        if (part != nullptr && part->cmsg_level == SOL_SOCKET && part->cmsg_type == SO_RXQ_OVFL) {
            uint32_t total = 0;
            std::memcpy(&total, CMSG_DATA(part), sizeof total);
            v2xpub_CountKernelDrops(socket, total);
            LogKernelDrops(socket);
        }
    }

    iovec m_parts[N];
    sockaddr_in m_senders[N]{};
    alignas(cmsghdr) uint8_t m_control[N][CMSG_SPACE(sizeof(uint32_t))];
    mmsghdr m_messages[N]{};
};

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

bool IsStopping(const v2xpub_udpSocket& socket) {
    return socket.isStopping.load(std::memory_order_acquire);
}

bool IsTransient(int error) {
    return error == EINTR || error == EAGAIN || error == ECONNREFUSED;
}

void Deliver(v2xpub_udpSocket& socket, uint8_t* data, ssize_t length, sockaddr_in& sender) {
    if (!IsDeliverable(socket, sender, length, V2XPUB_DATAGRAM_MAX)) {
        return;
    }
    v2xpub_Increment(socket.received);
    v2xpub_Tap(socket, false, sender, data, length);
    v2xpub_UdpSocketDataHead_t head{static_cast<int16_t>(length), data};
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

// Receives the next datagram of an accepted sender that fits into the `size` bytes at the start of the batch. Returns
// 0, 1 or -3 as v2xpub_UdpSocketRecv does.
int32_t ReceiveUntil(v2xpub_udpSocket& socket, Batch<1>& batch, size_t size, Clock::time_point deadline) {
    for (int32_t lateDrops = 0; lateDrops < LATE_DROPS_MAX;) {
        const int count = batch.Receive(socket, MSG_DONTWAIT);
        const int error = errno;
        if (count > 0) {
            if (IsDeliverable(socket, batch.Sender(0), batch.Length(0), size)) {
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
    Batch<V2XPUB_BATCH> batch(socket.buffer.get(), V2XPUB_SLOT);
    v2x_watchedThread thread(socket.name);
    while (true) {
        thread.Wait();
        const int count = batch.Receive(socket, MSG_WAITFORONE);
        const int error = errno;
        for (int i = 0; i < count && !IsStopping(socket); i++) {
            thread.Work();
            Deliver(socket, batch.Data(i), batch.Length(i), batch.Sender(i));
        }
        // After shutdown() each call returns an empty datagram. Only the flag shows that the socket is shut down.
        if (IsStopping(socket)) {
            return nullptr;
        }
        if (count < 0 && !IsTransient(error)) {
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
    const auto size = static_cast<size_t>(data->m_curMsgLen);
    Batch<1> batch(data->mp_data, size);
    const int32_t result = ReceiveUntil(*handle, batch, size, deadline);
    if (result == 0) {
        data->m_curMsgLen = static_cast<int16_t>(batch.Length(0));
        v2xpub_Increment(handle->received);
        v2xpub_Tap(*handle, false, batch.Sender(0), data->mp_data, batch.Length(0));
    }
    return result;
}
