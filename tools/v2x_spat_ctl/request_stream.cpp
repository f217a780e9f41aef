#include "request_stream.h"

#include <algorithm>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>

namespace ctl {
namespace {

constexpr int WRITE_WITHIN_MS = 1000;

bool WaitFor(int socket, short events, int milliseconds) {
    pollfd descriptor{socket, events, 0};
    return poll(&descriptor, 1, milliseconds) > 0;
}

// Returns false if the client has closed the connection.
bool IsOpen(int socket) {
    char byte = 0;
    return !WaitFor(socket, POLLIN, 0) || recv(socket, &byte, 1, MSG_PEEK | MSG_DONTWAIT) > 0;
}

} // namespace

bool RequestStream::is_readable() const {
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(m_deadline - Clock::now()).count();
    return m_position < m_size || WaitFor(m_socket, POLLIN, static_cast<int>(std::max<decltype(left)>(left, 0)));
}

bool RequestStream::is_writable() const {
    return WaitFor(m_socket, POLLOUT, WRITE_WITHIN_MS) && IsOpen(m_socket);
}

// Returns false if no further byte can be received.
bool RequestStream::Fill() {
    if (m_size == m_bytes.size() || !is_readable()) {
        return false;
    }
    const ssize_t length = recv(m_socket, m_bytes.data() + m_size, m_bytes.size() - m_size, MSG_DONTWAIT);
    m_size += static_cast<size_t>(std::max<ssize_t>(length, 0));
    return length > 0;
}

ssize_t RequestStream::read(char* bytes, size_t size) {
    if (m_position == m_size && !Fill()) {
        return 0;
    }
    const size_t length = std::min(size, m_size - m_position);
    memcpy(bytes, m_bytes.data() + m_position, length);
    m_position += length;
    return static_cast<ssize_t>(length);
}

ssize_t RequestStream::write(const char* bytes, size_t size) {
    return WaitFor(m_socket, POLLOUT, WRITE_WITHIN_MS) ? send(m_socket, bytes, size, MSG_NOSIGNAL) : -1;
}

} // namespace ctl
