// UDP address as the command line gives it.
#pragma once

#include <cstdint>
#include <string>

namespace sim {

struct Endpoint {
    std::string ip; // dotted IPv4 address
    uint16_t port;
};

// Reads "IP:PORT", or "PORT" alone when `defaultIp` is not null. Throws std::invalid_argument with what is wrong.
Endpoint ParseEndpoint(const std::string& given, const char* defaultIp);

// Whether the address is one of this machine's loopback addresses, 127.0.0.0/8.
bool IsLoopback(const std::string& ip);

// "IP:PORT"
std::string EndpointText(const Endpoint& endpoint);

} // namespace sim
