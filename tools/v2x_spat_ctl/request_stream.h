// TCP connection of one HTTP request, with a limit for the time and the size of the request.
#pragma once

#include <httplib.h>

#include <array>
#include <chrono>
#include <string>

namespace ctl {

class RequestStream : public httplib::Stream {
public:
    using Clock = std::chrono::steady_clock;

    // After `deadline` the stream reads only bytes that have already arrived. The caller closes the socket.
    RequestStream(int socket, Clock::time_point deadline) : m_socket(socket), m_deadline(deadline) {}

    // Returns true if bytes can be read before the deadline.
    bool is_readable() const override;

    // Returns true if the client accepts bytes within 1 s and has not closed its direction.
    bool is_writable() const override;

    // Returns the number of bytes; 0 after the deadline, after REQUEST_MAX bytes, and if the connection ends.
    ssize_t read(char* bytes, size_t size) override;

    // Returns the number of bytes; -1 if the client accepts none within 1 s, and if the connection ends.
    ssize_t write(const char* bytes, size_t size) override;

    // The server needs no addresses.
    void get_remote_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
    void get_local_ip_and_port(std::string& /*ip*/, int& /*port*/) const override {}
    int socket() const override { return m_socket; }

private:
    static constexpr size_t REQUEST_MAX = 16384; // bytes of a request

    bool Fill();

    const int m_socket;
    const Clock::time_point m_deadline;
    std::array<char, REQUEST_MAX> m_bytes;
    size_t m_size = 0;     // bytes received
    size_t m_position = 0; // bytes read
};

} // namespace ctl
