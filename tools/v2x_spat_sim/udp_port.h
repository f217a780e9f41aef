// The simulator's UDP socket: receives on one port and sends from it.
#pragma once

#include <cstdint>
#include <functional>
#include <span>

#include "endpoint.h"
#include "v2x/v2xpub.h"

namespace sim {

// One at a time in a process: the receive callback of the platform's sockets carries no context.
class UdpPort {
public:
    // Who sent a datagram; lent like its bytes.
    class Sender {
    public:
        // Sends one datagram back, from the port. Returns 0 or the error number of the refusal.
        int Reply(std::span<uint8_t> datagram) const;

    private:
        friend class UdpPort;
        Sender(V2X_UDPSOCKHANDLE handle, const void* address, int16_t size)
            : m_handle(handle), m_address(address), m_size(size) {}
        V2X_UDPSOCKHANDLE m_handle;
        const void* m_address;
        int16_t m_size;
    };

    // Called on the socket's receive thread; what is handed over is lent for the call.
    using Receive = std::function<void(std::span<const uint8_t> datagram, const Sender& sender)>;

    // `name` is at most 31 characters. Throws std::runtime_error that names address and reason.
    UdpPort(const char* name, const Endpoint& local, Receive receive);
    ~UdpPort();
    UdpPort(const UdpPort&) = delete;
    UdpPort& operator=(const UdpPort&) = delete;

    // Where Send sends to.
    void SetTarget(const Endpoint& target);
    // Returns 0 or the error number of the refusal.
    int Send(std::span<uint8_t> datagram);
    v2xpub_UdpSocketStats_t Stats() const;
    // Waits for the receive thread's end; nothing is called or sent any more, and the counters stay readable.
    void Close();

private:
    static void OnDatagram(V2X_UDPSOCKHANDLE handle, void* data, void* addr, int16_t addrLen);

    V2X_UDPSOCKHANDLE m_handle = nullptr;
    v2xpub_UdpSocketStats_t m_lastStats{};
};

} // namespace sim
