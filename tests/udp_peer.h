// A plain UDP socket on loopback: a peer of the code under test.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cstdint>
#include <optional>
#include <utility>

#include "bytes.h"

class UdpPeer {
public:
    // port: 0 for any free one; with another value isBound() tells whether it was free.
    // ip: an address of 127.0.0.0/8, host byte order.
    explicit UdpPeer(uint16_t port = 0, uint32_t ip = INADDR_LOOPBACK) {
        const int room = 4 * 1024 * 1024;
        setsockopt(m_fd, SOL_SOCKET, SO_RCVBUF, &room, sizeof room);
        for (int tries = port == 0 ? PORTS : 1; !m_isBound && tries > 0; tries--) {
            m_address = at(port == 0 ? nextPort() : port, ip);
            m_isBound = bind(m_fd, reinterpret_cast<const sockaddr*>(&m_address), sizeof m_address) == 0;
        }
    }
    ~UdpPeer() { release(); }
    UdpPeer(const UdpPeer&) = delete;
    UdpPeer& operator=(const UdpPeer&) = delete;

    bool isBound() const { return m_isBound; }
    uint16_t port() const { return ntohs(m_address.sin_port); }
    const sockaddr_in& address() const { return m_address; }
    int fd() const { return m_fd; }

    // Closes the socket so that another program can bind its port.
    void release() { close(std::exchange(m_fd, -1)); }

    bool sendTo(uint16_t port, const Bytes& bytes) const {
        const sockaddr_in to = at(port, INADDR_LOOPBACK);
        return sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<const sockaddr*>(&to), sizeof to) ==
               static_cast<ssize_t>(bytes.size());
    }

    // Next datagram, up to 65536 bytes; nullopt after the time out.
    std::optional<Bytes> receive(int milliseconds = 20000) {
        pollfd in{m_fd, POLLIN, 0};
        if (poll(&in, 1, milliseconds) != 1) {
            return std::nullopt;
        }
        Bytes bytes(65536);
        socklen_t size = sizeof m_sender;
        const ssize_t length =
            recvfrom(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&m_sender), &size);
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(length, 0)));
        return bytes;
    }

    // Sender of the last datagram.
    uint16_t senderPort() const { return ntohs(m_sender.sin_port); }

private:
    // Below the kernel's ephemeral ports: no socket gets one between release() and its next owner. Below the DDS
    // discovery ports, too (RTPS 2.3, 9.6.1: from 7400 on).
    static constexpr int FIRST_PORT = 2048;
    static constexpr int PORTS = 7400 - FIRST_PORT;
    static uint16_t nextPort() {
        static std::atomic<uint32_t> next{static_cast<uint32_t>(getpid()) * 97};
        return static_cast<uint16_t>(FIRST_PORT + next++ % PORTS);
    }

    static sockaddr_in at(uint16_t port, uint32_t ip) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(ip);
        address.sin_port = htons(port);
        return address;
    }

    int m_fd = socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0);
    sockaddr_in m_address{};
    sockaddr_in m_sender{};
    bool m_isBound = false;
};
