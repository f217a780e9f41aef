#include "v2xlog_stderr.h"

#include <cerrno>
#include <climits>
#include <cstring>
#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

namespace {

// POSIX: a pipe that is writable takes PIPE_BUF bytes at once, whole or not at all.
constexpr size_t kMaxLine = PIPE_BUF;

bool HasRoom(int fd) {
    pollfd ask{fd, POLLOUT, 0};
    int ready = 0;
    do {
        ready = ::poll(&ask, 1, 0);
    } while (ready < 0 && errno == EINTR);
    return ready == 1 && (ask.revents & POLLOUT) != 0 && (ask.revents & POLLERR) == 0; // POLLERR: nobody reads the pipe
}

bool WriteOnce(int fd, const char* data, size_t length) {
    ssize_t written = 0;
    do {
        written = ::write(fd, data, length);
    } while (written < 0 && errno == EINTR);
    return written > 0;
}

// A terminal is called writable as soon as it takes one byte, and a longer write then waits for its reader.
bool WriteByteByByte(int fd, std::string_view line) {
    for (const char& byte : line) {
        if (!HasRoom(fd) || !WriteOnce(fd, &byte, 1)) {
            return false;
        }
    }
    return true;
}

// An open file of its own that does not wait leaves the one shared with other processes as it is. Another user's
// terminal (after su) cannot be opened anew.
bool WriteTerminal(const char* data, size_t length) {
    const int fd = ::open("/proc/self/fd/2", O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    if (fd < 0) {
        return errno == EACCES && WriteByteByByte(STDERR_FILENO, {data, length});
    }
    const bool done = WriteOnce(fd, data, length);
    ::close(fd);
    return done;
}

} // namespace

bool v2xlog_WriteStderr(std::string_view line) {
    char cut[kMaxLine];
    if (line.size() > kMaxLine) {
        std::memcpy(cut, line.data(), kMaxLine - 1);
        cut[kMaxLine - 1] = '\n';
        line = {cut, kMaxLine};
    }
    if (!HasRoom(STDERR_FILENO)) {
        return false;
    }
    if (::isatty(STDERR_FILENO) == 1) {
        return WriteTerminal(line.data(), line.size());
    }
    return WriteOnce(STDERR_FILENO, line.data(), line.size());
}
