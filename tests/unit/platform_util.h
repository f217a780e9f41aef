// What the tests of the platform libraries share: a plain UDP peer on loopback, log lines.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <initializer_list>
#include <optional>
#include <sstream>
#include <string>
#include <thread>

#include "bytes.h"
#include "temp_folder.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

// A socket of the operating system's own on 127.0.0.1, at a port that the kernel chose.
class Peer {
public:
    Peer() : m_fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
        m_address.sin_family = AF_INET;
        m_address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof m_address;
        if (bind(m_fd, reinterpret_cast<sockaddr*>(&m_address), size) != 0 ||
            getsockname(m_fd, reinterpret_cast<sockaddr*>(&m_address), &size) != 0) {
            std::abort();
        }
    }
    ~Peer() { close(m_fd); }
    Peer(const Peer&) = delete;
    Peer& operator=(const Peer&) = delete;

    uint16_t Port() const { return ntohs(m_address.sin_port); }
    const sockaddr_in& Address() const { return m_address; }
    // The port that the datagram received last came from.
    uint16_t SenderPort() const { return ntohs(m_sender.sin_port); }

    bool Send(uint16_t port, const Bytes& bytes) {
        sockaddr_in to = m_address;
        to.sin_port = htons(port);
        return sendto(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&to), sizeof to) ==
               static_cast<ssize_t>(bytes.size());
    }

    std::optional<Bytes> Receive(int timeoutMs = 60'000) {
        pollfd entry{m_fd, POLLIN, 0};
        if (poll(&entry, 1, timeoutMs) != 1) {
            return std::nullopt;
        }
        Bytes bytes(65536);
        socklen_t size = sizeof m_sender;
        const ssize_t length =
            recvfrom(m_fd, bytes.data(), bytes.size(), 0, reinterpret_cast<sockaddr*>(&m_sender), &size);
        bytes.resize(static_cast<size_t>(std::max<ssize_t>(length, 0)));
        return bytes;
    }

private:
    int m_fd;
    sockaddr_in m_address{};
    sockaddr_in m_sender{};
};

inline v2xpub_SocketInitPara_t SocketPara(const char* name, bool isServer, uint16_t port, v2xpub_msgFunc callback) {
    v2xpub_SocketInitPara_t para{};
    std::snprintf(para.m_sockName, sizeof para.m_sockName, "%s", name);
    std::snprintf(para.m_localIP, sizeof para.m_localIP, "127.0.0.1");
    para.m_svrPort = isServer ? port : uint16_t{0};
    para.m_cliPort = isServer ? uint16_t{0} : port;
    para.m_svrEnable = isServer ? 1 : 0;
    para.m_cliEnable = 1;
    para.f_msgFunc = callback;
    return para;
}

// The process's log, in a file of its own folder that goes with the process. Every line is kept.
class LogFile {
public:
    explicit LogFile(std::initializer_list<const char*> tags) {
        v2xlog_Init(Path().c_str(), "TEST", 1, 0, 0);
        for (const char* tag : tags) {
            V2X_LOGHANDLE handle = nullptr;
            v2xlog_AddTag(tag, &handle);
        }
    }

    // Lines written so far count no more.
    void Forget() { m_start = readFile(Path()).size(); }

    // Lines that contain every one of the words.
    int Count(std::initializer_list<std::string> words) const {
        std::istringstream lines(readFile(Path()).substr(m_start));
        int count = 0;
        for (std::string line; std::getline(lines, line);) {
            const auto contains = [&line](const std::string& word) { return line.find(word) != std::string::npos; };
            count += std::all_of(words.begin(), words.end(), contains) ? 1 : 0;
        }
        return count;
    }

private:
    std::string Path() const { return m_folder.path() + "/test.log"; }

    TempFolder m_folder;
    size_t m_start = 0;
};
