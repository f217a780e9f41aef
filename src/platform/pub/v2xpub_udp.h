// One UDP socket, as the source files of this library share it.
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

// The longest datagram that m_curMsgLen can tell.
inline constexpr ssize_t V2XPUB_DATAGRAM_MAX = INT16_MAX;

// Log lines that a peer can cause endlessly: lets the first one through and then one in ten seconds. Any thread.
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

    // Receive thread of a server with callback; no buffer means no thread.
    v2xpub_msgFunc callback = nullptr;
    std::unique_ptr<uint8_t[]> buffer;
    pthread_t thread{};
    std::atomic<bool> stop{false};

    // Where requests go, as one word so that senders need no lock; 0 = not set.
    std::atomic<uint64_t> destination{0};

    v2xpub_udpSocket* next = nullptr; // of the open sockets

    std::atomic<uint64_t> received{0};
    std::atomic<uint64_t> tooLong{0};
    std::atomic<uint64_t> kernelDrops{0};
    std::atomic<uint64_t> sent{0};
    std::atomic<uint64_t> sendErrors{0};
    std::atomic<uint32_t> kernelDropsSeen{0};   // the kernel's own counter when last seen
    std::atomic<uint64_t> kernelDropsLogged{0}; // as the log has it

    v2xpub_RateLimit tooLongLog;
    v2xpub_RateLimit kernelDropsLog;
    v2xpub_RateLimit receiveErrorLog;
    v2xpub_RateLimit sendErrorLog;
};

// Adds one; the counters order nothing.
inline uint64_t v2xpub_Count(std::atomic<uint64_t>& counter) {
    return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Takes over the kernel's own count of what it dropped; it wraps.
void v2xpub_CountKernelDrops(v2xpub_udpSocket& socket, uint32_t total);

// The receive thread; `socket` is the v2xpub_udpSocket. Ends once stop is set and the socket is shut down.
void* v2xpub_UdpReceiveThread(void* socket);

// Bytes of the buffer that the thread receives into: any UDP datagram fits.
inline constexpr size_t V2XPUB_RECEIVE_BUFFER = 65536;
