#include "common/endpoint.h"

#include <arpa/inet.h>

#include <charconv>
#include <stdexcept>

namespace tools {

Endpoint ParseEndpoint(const std::string& given, uint16_t lowestPort) {
    const size_t colon = given.find(':');
    const bool isPortOnly = colon == std::string::npos;
    const std::string ip = isPortOnly ? "" : given.substr(0, colon);
    in_addr address{};
    if (!isPortOnly && inet_pton(AF_INET, ip.c_str(), &address) != 1) {
        throw std::invalid_argument("'" + ip + "' is not an IPv4 address, like 127.0.0.1");
    }
    const std::string text = isPortOnly ? given : given.substr(colon + 1);
    const char* const end = text.data() + text.size();
    uint16_t port = 0;
    const auto [stop, error] = std::from_chars(text.data(), end, port);
    if (error != std::errc{} || stop != end || port < lowestPort) {
        throw std::invalid_argument("'" + text + "' is not a port, " + std::to_string(lowestPort) + " to 65535");
    }
    return {ip, port};
}

std::string FormatEndpoint(const Endpoint& endpoint) {
    return (endpoint.ip.empty() ? "" : endpoint.ip + ":") + std::to_string(endpoint.port);
}

} // namespace tools
