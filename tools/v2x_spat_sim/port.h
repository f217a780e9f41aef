// The simulators' connections: a UDP socket and DDS topics. A process has at most one UdpPort and one DdsPort, because
// the receive callbacks of the platform libraries have no context argument.
#pragma once

#include <cstdint>
#include <functional>
#include <span>
#include <string>
#include <vector>

#include "common/endpoint.h"
#include "v2x/v2xpub.h"

namespace sim {

using tools::Endpoint;
using tools::FormatEndpoint;
using tools::ParseEndpoint;

// Receives and sends datagrams through one UDP port.
class UdpPort {
public:
    // The sender of a datagram. Valid during the callback.
    class Sender {
    public:
        // Sends one datagram from the port to the sender. Returns 0 or the error number.
        int Reply(std::span<uint8_t> datagram) const;

    private:
        friend class UdpPort;
        Sender(V2X_UDPSOCKHANDLE handle, const void* address, int16_t size)
            : m_handle(handle), m_address(address), m_size(size) {}
        V2X_UDPSOCKHANDLE m_handle;
        const void* m_address;
        int16_t m_size;
    };

    // Called on the socket's receive thread. The arguments are valid during the call.
    using Receive = std::function<void(std::span<const uint8_t> datagram, const Sender& sender)>;

    // `name` has at most 31 characters. Throws std::runtime_error with address and reason.
    UdpPort(const char* name, const Endpoint& local, Receive receive);
    ~UdpPort();
    UdpPort(const UdpPort&) = delete;
    UdpPort& operator=(const UdpPort&) = delete;

    // Sets the destination of Send. Throws std::runtime_error if the address is invalid.
    void SetTarget(const Endpoint& target);
    // Sends one datagram. Returns 0 or the error number.
    int Send(std::span<uint8_t> datagram);
    v2xpub_UdpSocketStats_t Stats() const;
    // Closes the socket and waits until the receive thread has ended. Stats then returns the last values.
    void Close();

private:
    static void OnDatagram(V2X_UDPSOCKHANDLE handle, void* data, void* addr, int16_t addrLen);

    V2X_UDPSOCKHANDLE m_handle = nullptr;
    v2xpub_UdpSocketStats_t m_lastStats{};
};

// Publishes on DDS topics and reads DDS topics.
class DdsPort {
public:
    // Called on a thread of the DDS library, one call at a time per topic. The bytes are valid during the call.
    using Receive = std::function<void(std::span<const uint8_t> sample)>;

    struct Topic {
        std::string name;
        Receive receive; // empty if the port publishes on the topic
    };
    static constexpr size_t MAX_READ_TOPICS = 2;

    // Throws std::runtime_error with the domain and, if registering a topic fails, with the topic.
    DdsPort(int32_t domain, const std::vector<Topic>& topics);
    ~DdsPort();
    DdsPort(const DdsPort&) = delete;
    DdsPort& operator=(const DdsPort&) = delete;

    // Returns true if a reader matches the topic's writer.
    bool HasReader(const std::string& topic) const;
    // Publishes at least one byte. Returns false if the DDS library rejects the bytes.
    bool Send(const std::string& topic, const std::string& bytes);
    // Leaves the domain.
    void Close();

private:
    void* m_handle;
};

} // namespace sim
