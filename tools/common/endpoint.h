// An IPv4 address with a port.
#pragma once

#include <cstdint>
#include <string>

namespace tools {

struct Endpoint {
    std::string ip; // dotted IPv4 address
    uint16_t port;
};

// Parses "IP:PORT" or "PORT". Leaves `ip` empty for "PORT". Throws std::invalid_argument with the reason.
Endpoint ParseEndpoint(const std::string& given, uint16_t lowestPort = 1);

// Returns "IP:PORT", or "PORT" if `ip` is empty.
std::string FormatEndpoint(const Endpoint& endpoint);

} // namespace tools
