// The simulators' connections: a UDP socket, and DDS topics of plain bytes. At most one of each in a process: the
// receive callbacks of the platform's libraries carry no context.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "v2x/v2xpub.h"

namespace sim {

struct Endpoint {
    std::string ip; // dotted IPv4 address
    uint16_t port;
};

// Parses "IP:PORT", or "PORT" alone, which leaves `ip` empty. Throws std::invalid_argument with the reason.
Endpoint ParseEndpoint(const std::string& given);

// "IP:PORT", or "PORT" when `ip` is empty.
std::string EndpointText(const Endpoint& endpoint);

// Receives on one UDP port and sends from it.
class UdpPort {
public:
    // Who sent a datagram; valid during the callback.
    class Sender {
    public:
        // Sends one datagram back, from the port. Returns 0 or the error number.
        int Reply(std::span<uint8_t> datagram) const;

    private:
        friend class UdpPort;
        Sender(V2X_UDPSOCKHANDLE handle, const void* address, int16_t size)
            : m_handle(handle), m_address(address), m_size(size) {}
        V2X_UDPSOCKHANDLE m_handle;
        const void* m_address;
        int16_t m_size;
    };

    // Called on the socket's receive thread; the arguments are valid during the call.
    using Receive = std::function<void(std::span<const uint8_t> datagram, const Sender& sender)>;

    // `name` is at most 31 characters. Throws std::runtime_error with address and reason.
    UdpPort(const char* name, const Endpoint& local, Receive receive);
    ~UdpPort();
    UdpPort(const UdpPort&) = delete;
    UdpPort& operator=(const UdpPort&) = delete;

    // Sets where Send sends to.
    void SetTarget(const Endpoint& target);
    // Returns 0 or the error number.
    int Send(std::span<uint8_t> datagram);
    v2xpub_UdpSocketStats_t Stats() const;
    // Waits for the end of the receive thread. Nothing is received or sent any more; Stats keeps its values.
    void Close();

private:
    static void OnDatagram(V2X_UDPSOCKHANDLE handle, void* data, void* addr, int16_t addrLen);

    V2X_UDPSOCKHANDLE m_handle = nullptr;
    v2xpub_UdpSocketStats_t m_lastStats{};
};

class DdsPort {
public:
    // Called on a thread of the library, one call at a time for a topic; the bytes are valid during the call.
    using Receive = std::function<void(std::span<const uint8_t> sample)>;

    struct Topic {
        std::string name;
        Receive receive; // empty for a topic to publish on
    };
    static constexpr size_t MAX_READ_TOPICS = 2;

    // Throws std::runtime_error with the domain or the topic.
    DdsPort(int32_t domain, const std::vector<Topic>& topics);
    ~DdsPort();
    DdsPort(const DdsPort&) = delete;
    DdsPort& operator=(const DdsPort&) = delete;

    bool HasReader(const std::string& topic) const;
    // Publishes the bytes, at least one; false when the library rejects them.
    bool Send(const std::string& topic, const std::string& bytes);
    // Nothing is received or sent any more.
    void Close();

private:
    void* m_handle;
};

} // namespace sim
