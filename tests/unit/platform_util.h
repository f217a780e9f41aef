// What the tests of the platform libraries share: a plain UDP peer on loopback, log lines, waiting with a deadline.
#pragma once

#include <arpa/inet.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <initializer_list>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

using Bytes = std::vector<uint8_t>;

// Polls until `done` holds; false when it does not within a minute.
template <typename Predicate>
bool WaitUntil(Predicate done) {
    const auto deadline = std::chrono::steady_clock::now() + std::chrono::minutes(1);
    while (!done()) {
        if (std::chrono::steady_clock::now() > deadline) {
            return false;
        }
        std::this_thread::sleep_for(std::chrono::milliseconds(1));
    }
    return true;
}

// A datagram's content that shows a cut, a mix-up or a stale byte.
inline Bytes Pattern(size_t size, uint8_t seed) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; ++i) {
        bytes[i] = static_cast<uint8_t>(seed + i * 7 + i / 251);
    }
    return bytes;
}

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

// Opens a socket at a port that was free a moment ago, by `open(para)`, until no other program was faster. Returns the
// port, or 0.
template <typename Open>
uint16_t OpenAtFreePort(const char* name, bool isServer, v2xpub_msgFunc callback, Open open) {
    for (int attempt = 0; attempt < 20; ++attempt) {
        const uint16_t port = Peer().Port();
        if (open(SocketPara(name, isServer, port, callback)) == 0) {
            return port;
        }
    }
    return 0;
}

// The process's log, in a file of its own folder that goes with the process. Every line is kept.
class LogFile {
public:
    explicit LogFile(std::initializer_list<const char*> tags) {
        char folder[] = "/tmp/v2x_test_XXXXXX";
        m_folder = mkdtemp(folder) != nullptr ? folder : "";
        v2xlog_Init((m_folder + "/test.log").c_str(), "TEST", 1, 0, 0);
        for (const char* tag : tags) {
            V2X_LOGHANDLE handle = nullptr;
            v2xlog_AddTag(tag, &handle);
        }
    }
    ~LogFile() {
        std::remove((m_folder + "/test.log").c_str());
        rmdir(m_folder.c_str());
    }
    LogFile(const LogFile&) = delete;
    LogFile& operator=(const LogFile&) = delete;

    // Lines written so far count no more.
    void Forget() { m_start = std::ifstream(m_folder + "/test.log", std::ios::ate).tellg(); }

    // Lines that contain every one of the words.
    int Count(std::initializer_list<std::string> words) const {
        std::ifstream file(m_folder + "/test.log");
        file.seekg(m_start);
        int count = 0;
        for (std::string line; std::getline(file, line);) {
            const auto contains = [&line](const std::string& word) { return line.find(word) != std::string::npos; };
            count += std::all_of(words.begin(), words.end(), contains) ? 1 : 0;
        }
        return count;
    }

private:
    std::string m_folder;
    std::streampos m_start = 0;
};
