// One UDP socket, shared by the source files of this library.
#pragma once

#include <netinet/in.h>
#include <pthread.h>
#include <sys/types.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>

#include "v2x/v2xpub.h"

// The largest length that m_curMsgLen can hold.
inline constexpr ssize_t V2XPUB_DATAGRAM_MAX = INT16_MAX;

// Rate limit for log lines that a peer can cause without end: one passes every ten seconds. Any thread.
class v2xpub_RateLimit {
public:
    bool Pass() {
        const int64_t now = std::chrono::steady_clock::now().time_since_epoch().count();
        int64_t next = m_next.load(std::memory_order_relaxed);
        return now >= next && m_next.compare_exchange_strong(next, now + PAUSE, std::memory_order_relaxed);
    }

private:
    static constexpr int64_t PAUSE = std::chrono::steady_clock::duration(std::chrono::seconds(10)).count();
    std::atomic<int64_t> m_next{INT64_MIN};
};

struct v2xpub_udpSocket {
    v2xpub_udpSocket() = default;
    ~v2xpub_udpSocket() {
        if (fd >= 0) {
            close(fd);
        }
    }
    v2xpub_udpSocket(const v2xpub_udpSocket&) = delete;
    v2xpub_udpSocket& operator=(const v2xpub_udpSocket&) = delete;

    std::string name;
    int fd = -1;

    // Receive thread of a server with a callback; a null buffer means no thread.
    v2xpub_msgFunc callback = nullptr;
    std::unique_ptr<uint8_t[]> buffer;
    pthread_t thread{};
    std::atomic<bool> stop{false};

    // Destination of requests, in one word so that senders need no lock; 0 = not set.
    std::atomic<uint64_t> destination{0};

    v2xpub_udpSocket* next = nullptr; // in the list of open sockets

    std::atomic<uint64_t> received{0};
    std::atomic<uint64_t> tooLong{0};
    std::atomic<uint64_t> kernelDrops{0};
    std::atomic<uint64_t> sent{0};
    std::atomic<uint64_t> sendErrors{0};
    std::atomic<uint32_t> kernelDropsSeen{0};   // the kernel's counter at its last reading
    std::atomic<uint64_t> kernelDropsLogged{0}; // the count in the last log line

    v2xpub_RateLimit tooLongLog;
    v2xpub_RateLimit kernelDropsLog;
    v2xpub_RateLimit receiveErrorLog;
    v2xpub_RateLimit sendErrorLog;
};

// Adds one and returns the new count. The order is relaxed.
inline uint64_t v2xpub_Count(std::atomic<uint64_t>& counter) {
    return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Adds the drops since the last reading of the kernel's counter, which is `total` now and wraps.
void v2xpub_CountKernelDrops(v2xpub_udpSocket& socket, uint32_t total);

// The receive thread; `socket` is the v2xpub_udpSocket. Ends when stop is set and the socket is shut down.
void* v2xpub_UdpReceiveThread(void* socket);

// Bytes of the thread's receive buffer, which holds any UDP datagram.
inline constexpr size_t V2XPUB_RECEIVE_BUFFER = 65536;
