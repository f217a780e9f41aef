#include "watchers.h"

#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <poll.h>
#include <sched.h>
#include <string_view>
#include <sys/prctl.h>
#include <sys/socket.h>
#include <sys/un.h>
#include <sys/wait.h>
#include <unistd.h>

namespace {

constexpr int CLIENTS = 8; // the maximum
constexpr std::string_view REQUEST = "{\"cmd\": \"watch\"}\n";

int connectClient(const std::string& path) {
    sockaddr_un address = {};
    address.sun_family = AF_UNIX;
    path.copy(address.sun_path, sizeof address.sun_path - 1);
    const int fd = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (connect(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        write(fd, REQUEST.data(), REQUEST.size()) != static_cast<ssize_t>(REQUEST.size())) {
        fprintf(stderr, "cannot watch at %s: %s\n", path.c_str(), strerror(errno));
        exit(1);
    }
    return fd;
}

// Ends when the parent ends. SCHED_BATCH keeps this process from preempting the measurement.
[[noreturn]] void readAll(const std::vector<int>& clients) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    const sched_param param = {};
    sched_setscheduler(0, SCHED_BATCH, &param);
    std::vector<pollfd> entries;
    for (const int fd : clients) {
        entries.push_back({fd, POLLIN, 0});
    }
    std::vector<char> buffer(65536);
    for (;;) {
        poll(entries.data(), entries.size(), -1);
        for (pollfd& entry : entries) {
            if (entry.revents != 0 && read(entry.fd, buffer.data(), buffer.size()) <= 0) {
                entry.fd = -1; // the daemon has ended
            }
        }
    }
}

} // namespace

Watchers::Watchers(const std::string& path, bool isReading) : m_self(getpid()) {
    for (int i = 0; i < CLIENTS; i++) {
        m_clients.push_back(connectClient(path));
    }
    m_reader = isReading ? fork() : 0;
    if (isReading && m_reader == 0) {
        readAll(m_clients);
    }
}

Watchers::~Watchers() {
    if (m_reader > 0) {
        kill(m_reader, SIGKILL);
        waitpid(m_reader, nullptr, 0);
    }
    for (const int fd : m_clients) {
        close(fd);
    }
}
