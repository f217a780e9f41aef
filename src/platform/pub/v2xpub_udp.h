// The data of a UDP socket, for the source files of this library.
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
#include "v2xpub_refused.h"

// Maximum length of a datagram in bytes. m_curMsgLen cannot store a larger length.
inline constexpr ssize_t V2XPUB_DATAGRAM_MAX = INT16_MAX;

// Rate limit for log lines that a peer can cause.
class v2xpub_RateLimit {
public:
    // Returns true at most once in ten seconds. May be called on any thread.
    bool Pass() {
        const int64_t now = std::chrono::steady_clock::now().time_since_epoch().count();
        int64_t next = m_next.load(std::memory_order_relaxed);
        return now >= next && m_next.compare_exchange_strong(next, now + INTERVAL, std::memory_order_relaxed);
    }

private:
    static constexpr int64_t INTERVAL = std::chrono::steady_clock::duration(std::chrono::seconds(10)).count();
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

    // Callback and receive thread of a server. If `buffer` is null, the socket has neither.
    v2xpub_msgFunc callback = nullptr;
    std::unique_ptr<uint8_t[]> buffer;
    pthread_t thread{};
    std::atomic<bool> isStopping{false};

    // Sender filter, constant after the socket is opened. See v2xpub_SocketInitPara_t.
    v2xpub_senders_t senders;
    const char* peer = "";
    const char* sendersKey = "";
    v2xpub_RefusedLog refusedLog;

    // Address and port of the destination in one word, so that senders need no lock. 0 means no destination.
    std::atomic<uint64_t> destination{0};

    v2xpub_address_t local;           // for the journal; constant after the socket is opened
    v2xpub_udpSocket* next = nullptr; // the next entry in the list of open sockets

    std::atomic<uint64_t> received{0};
    std::atomic<uint64_t> tooLong{0};
    std::atomic<uint64_t> kernelDrops{0};
    std::atomic<uint64_t> sent{0};
    std::atomic<uint64_t> sendErrors{0};
    std::atomic<uint64_t> refusedSender{0};
    std::atomic<uint32_t> kernelDropsSeen{0};   // the last value read from the kernel's drop counter
    std::atomic<uint64_t> kernelDropsLogged{0}; // the value of kernelDrops in the last log line

    v2xpub_RateLimit tooLongLog;
    v2xpub_RateLimit kernelDropsLog;
    v2xpub_RateLimit receiveErrorLog;
    v2xpub_RateLimit sendErrorLog;
};

// Increments the counter in relaxed order and returns its new value.
inline uint64_t v2xpub_Increment(std::atomic<uint64_t>& counter) {
    return counter.fetch_add(1, std::memory_order_relaxed) + 1;
}

// Adds the drops since the previous call to `kernelDrops`. `total` is the kernel's drop counter, which wraps.
void v2xpub_CountKernelDrops(v2xpub_udpSocket& socket, uint32_t total);

// Copies a datagram of `length` bytes that the socket has received from or sent to `remote` to the journal, if
// datagrams are selected. Any thread.
void v2xpub_Tap(const v2xpub_udpSocket& socket, bool isSent, const sockaddr_in& remote, const uint8_t* data,
                ssize_t length);

// The receive thread. `socket` points to a v2xpub_udpSocket. The thread ends after isStopping is set and the socket is
// shut down. Returns null.
void* v2xpub_UdpReceiveThread(void* socket);

// Maximum number of datagrams that the receive thread reads with one system call, and the size of the buffer for each.
inline constexpr size_t V2XPUB_BATCH = 8;
inline constexpr size_t V2XPUB_SLOT = V2XPUB_DATAGRAM_MAX + 1;
