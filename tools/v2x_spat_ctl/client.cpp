#include "client.h"

#include <cerrno>
#include <chrono>
#include <cstring>
#include <poll.h>
#include <sys/socket.h>
#include <sys/time.h>
#include <sys/un.h>
#include <unistd.h>

#include "common/text.h"

namespace ctl {
namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::seconds REPLY_WITHIN{5};
constexpr size_t LINE_MAX_SIZE = size_t{1} << 20; // longer than every line of the daemon

// Returns what an error of connect() means for a person.
std::string Explain(int error) {
    switch (error) {
    case ENOENT:
        return "no such socket; the daemon does not run, or Control.Path names another one";
    case ECONNREFUSED:
        return "the daemon does not run";
    case EAGAIN:
        return "the daemon does not answer";
    case EACCES:
        return "permission denied; join the group that owns the socket, or become root";
    default:
        return strerror(error);
    }
}

int Connect(const std::string& path) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    if (path.empty() || path.size() >= sizeof address.sun_path) {
        throw NoDaemon("the path of a control socket has 1 to 107 characters, not " + std::to_string(path.size()));
    }
    memcpy(address.sun_path, path.c_str(), path.size());
    const int descriptor = socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0);
    const timeval within{REPLY_WITHIN.count(), 0}; // also for connect(), which waits while too many clients do
    if (descriptor < 0 || setsockopt(descriptor, SOL_SOCKET, SO_SNDTIMEO, &within, sizeof within) != 0 ||
        connect(descriptor, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        const int error = errno;
        close(descriptor);
        throw NoDaemon(path + ": " + Explain(error));
    }
    return descriptor;
}

int MillisecondsUntil(Clock::time_point deadline) {
    const auto left = std::chrono::duration_cast<std::chrono::milliseconds>(deadline - Clock::now()).count();
    return left > 0 ? static_cast<int>(left) : 0;
}

} // namespace

Client::Client(const std::string& path) : m_path(path), m_socket(Connect(path)) {}

Client::~Client() {
    close(m_socket);
}

void Client::Send(std::string_view name) {
    const std::string request = "{\"cmd\": \"" + std::string(name) + "\"}\n";
    // The daemon may have closed the connection after a line that says why. ReadLine returns this line first.
    send(m_socket, request.data(), request.size(), MSG_NOSIGNAL);
}

std::string Client::Request(std::string_view name) {
    Send(name);
    const auto deadline = Clock::now() + REPLY_WITHIN;
    while (Clock::now() < deadline) {
        const auto line = ReadLine(MillisecondsUntil(deadline)); // empty after a signal, too
        if (line && tools::GetText(ParseLine(*line).get(), "reply") == name) {
            return *line;
        }
    }
    throw NoDaemon(m_path + ": the daemon does not answer");
}

tools::Json Client::ParseLine(const std::string& line) const {
    std::string error;
    try {
        tools::Json json = tools::ParseJsonObject(line);
        error = tools::MakePlain(tools::GetText(json.get(), "error"));
        if (error.empty()) {
            return json;
        }
    } catch (const std::runtime_error& reason) {
        error = reason.what();
    }
    throw NoDaemon(m_path + ": " + error);
}

std::optional<std::string> Client::ReadLine(int milliseconds) {
    const auto deadline = Clock::now() + std::chrono::milliseconds(milliseconds);
    auto line = TakeLine();
    while (!line) {
        pollfd readable{m_socket, POLLIN, 0};
        if (poll(&readable, 1, milliseconds < 0 ? -1 : MillisecondsUntil(deadline)) <= 0) {
            return std::nullopt;
        }
        char bytes[65536];
        const ssize_t length = recv(m_socket, bytes, sizeof bytes, 0);
        if (length <= 0) {
            throw NoDaemon(m_path + ": the daemon has closed the connection");
        }
        if (m_buffer.size() > LINE_MAX_SIZE) {
            throw NoDaemon(m_path + ": a line is longer than 1 MiB");
        }
        m_buffer.append(bytes, static_cast<size_t>(length));
        line = TakeLine();
    }
    return line;
}

std::optional<std::string> Client::TakeLine() {
    const size_t end = m_buffer.find('\n');
    if (end == std::string::npos) {
        return std::nullopt;
    }
    std::string line = m_buffer.substr(0, end);
    m_buffer.erase(0, end + 1);
    return line;
}

} // namespace ctl
