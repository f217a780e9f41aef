// What the tests of the DDS library share: a domain of one's own, what a callback got, peers in processes of their own.
#pragma once

#include <gtest/gtest.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <unistd.h>

#include <cstddef>
#include <cstdlib>
#include <fstream>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "dds/payload.h"
#include "process.h"
#include "v2x/v2xdds.h"

// A domain that no other test on this machine uses, for the life of the process: the first one that is free from one
// that the process's number gives, held by a name that only one socket can have. Domains 0 to 100 have their ports
// below those that the kernel gives out by itself.
inline int32_t testDomain() {
    static const int32_t domain = [] {
        const int fd = socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0);
        for (int32_t i = 0; i < 101; i++) {
            const int32_t candidate = (getpid() + i) % 101;
            sockaddr_un address{};
            address.sun_family = AF_UNIX;
            // From the second byte on: a name without a file.
            const int length =
                snprintf(address.sun_path + 1, sizeof address.sun_path - 1, "v2x_test_domain_%d", candidate);
            const size_t size = offsetof(sockaddr_un, sun_path) + 1 + static_cast<size_t>(length);
            if (bind(fd, reinterpret_cast<sockaddr*>(&address), static_cast<socklen_t>(size)) == 0) {
                return candidate;
            }
        }
        abort();
    }();
    return domain;
}

// Where the participant of that number listens for others (RTPS 2.3, 9.6.1: 250 ports a domain, 2 a participant); the
// next port is for samples.
inline uint16_t discoveryPort(int32_t number) {
    return static_cast<uint16_t>(7400 + 250 * testDomain() + 10 + 2 * number);
}

// What the callbacks of this process got, in the order of their calls.
class Inbox {
public:
    // Callbacks tell no topic, so each has an inbox of its own.
    template <int NUMBER = 0>
    static Inbox& of() {
        static Inbox inbox;
        return inbox;
    }
    template <int NUMBER = 0>
    static void take(void* data, unsigned int len) {
        of<NUMBER>().add(describe(data, len));
    }

    void add(const std::string& piece) {
        const std::lock_guard lock(m_mutex);
        m_pieces.push_back(piece);
    }
    std::vector<std::string> all() {
        const std::lock_guard lock(m_mutex);
        return m_pieces;
    }
    bool holds(size_t count) {
        return eventually([&] { return all().size() >= count; });
    }

private:
    std::mutex m_mutex;
    std::vector<std::string> m_pieces;
};

// A participant of this process in one or two topics.
class Participant {
public:
    Participant() : m_handle(create_dds()) {}
    ~Participant() { destroy_dds(m_handle); }
    Participant(const Participant&) = delete;
    Participant& operator=(const Participant&) = delete;

    void writes(const char* topic, int32_t setting = DDS_HISTORY_REAL_TIME) { reads(topic, nullptr, setting); }
    void reads(const char* topic, dds_RecvCallback callback, int32_t setting = DDS_HISTORY_REAL_TIME) {
        ASSERT_TRUE(dds_reg(m_handle, testDomain(), topic, callback, 0));
        ASSERT_TRUE(set_history_qos(m_handle, topic, setting, 0));
    }
    void start() {
        ASSERT_TRUE(set_white_list_iface(m_handle, "127.0.0.1"));
        ASSERT_TRUE(dds_start(m_handle));
    }
    bool awaits(const char* topic, int32_t readers) {
        return eventually([&] { return get_match_cnt(m_handle, topic) == readers; });
    }
    int32_t send(const char* topic, const Bytes& bytes) {
        return dds_send(m_handle, topic, bytes.data(), static_cast<uint32_t>(bytes.size()));
    }
    void* handle() const { return m_handle; }

private:
    void* const m_handle;
};

// One of the peer programs, in the test's domain.
class Peer {
public:
    // `program` is in the folder of the programs; {role, ...} follow the domain.
    Peer(const std::string& program, std::vector<std::string> arguments, std::vector<std::string> environment = {}) {
        environment.push_back("DDS_PEER_LOG=" + log());
        arguments.insert(arguments.begin(), {V2X_BIN "/" + program, std::to_string(testDomain())});
        m_process = std::make_unique<Process>(arguments, environment, out(), m_folder.path() + "/err");
    }
    std::vector<std::string> lines() const {
        std::ifstream file(out());
        std::vector<std::string> all;
        for (std::string line; std::getline(file, line) && !file.eof();) {
            all.push_back(line);
        }
        return all;
    }
    std::string errors() const { return readFile(m_folder.path() + "/err"); }
    std::string log() const { return m_folder.path() + "/peer.log"; }
    Process& process() { return *m_process; }

private:
    std::string out() const { return m_folder.path() + "/out"; }

    TempFolder m_folder;
    std::unique_ptr<Process> m_process;
};
