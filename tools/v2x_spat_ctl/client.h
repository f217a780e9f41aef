// Connection to the control socket of the daemon.
#pragma once

#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "common/json.h"

namespace ctl {

// The daemon cannot be asked: no daemon, no permission, too many clients, or the connection has ended. The tool exits
// with status 2.
class NoDaemon : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

class Client {
public:
    // Connects to the socket at `path`. Throws NoDaemon with path and reason.
    explicit Client(const std::string& path);
    ~Client();
    Client(const Client&) = delete;
    Client& operator=(const Client&) = delete;

    // Sends {"cmd": "NAME"}. The next ReadLine reports a failure.
    void Send(std::string_view name);

    // Sends a request and returns the line of the reply. Discards events that arrive before the reply. Throws
    // NoDaemon if the connection ends, if the reply does not arrive within 5 s, or as ParseLine does.
    std::string Request(std::string_view name);

    // Returns the next line without its line feed. Waits at most `milliseconds`; -1 waits without limit. Returns an
    // empty optional after the time-out or after a signal. Throws NoDaemon if the connection ends.
    std::optional<std::string> ReadLine(int milliseconds);

    // Parses a line of the daemon. Throws NoDaemon if the line is invalid, or with the text of an error line.
    tools::Json ParseLine(const std::string& line) const;

    int Descriptor() const { return m_socket; }

private:
    std::optional<std::string> TakeLine();

    std::string m_path;
    int m_socket;
    std::string m_buffer;
};

} // namespace ctl
