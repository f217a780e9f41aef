#include "endpoint.h"

#include <charconv>
#include <optional>
#include <stdexcept>
#include <string_view>

namespace sim {
namespace {

// A whole text of decimal digits, no sign and no leading zero, at most `max`.
std::optional<uint32_t> ParseNumber(std::string_view digits, uint32_t max) {
    uint32_t value = 0;
    const char* const end = digits.data() + digits.size();
    const auto [stop, error] = std::from_chars(digits.data(), end, value);
    const bool isNumber = error == std::errc{} && stop == end && (digits.size() == 1 || digits.front() != '0');
    return isNumber && value <= max ? std::optional(value) : std::nullopt;
}

bool IsDottedAddress(std::string_view ip) {
    for (int part = 0; part < 4; ++part) {
        const size_t dot = part < 3 ? ip.find('.') : ip.size();
        if (dot > 3 || !ParseNumber(ip.substr(0, dot), 255)) {
            return false;
        }
        ip.remove_prefix(part < 3 ? dot + 1 : dot);
    }
    return ip.empty();
}

} // namespace

Endpoint ParseEndpoint(const std::string& given, const char* defaultIp) {
    const size_t colon = given.find(':');
    const bool portOnly = colon == std::string::npos;
    if (portOnly && defaultIp == nullptr) {
        throw std::invalid_argument("'" + given + "' is not IP:PORT, like 127.0.0.1:8002");
    }
    const std::string ip = portOnly ? defaultIp : given.substr(0, colon);
    if (!IsDottedAddress(ip)) {
        throw std::invalid_argument("'" + ip + "' is not an IPv4 address, like 127.0.0.1");
    }
    const std::string port = portOnly ? given : given.substr(colon + 1);
    const std::optional<uint32_t> number = ParseNumber(port, 65535);
    if (!number || *number == 0) {
        throw std::invalid_argument("'" + port + "' is not a UDP port, 1 to 65535");
    }
    return {ip, static_cast<uint16_t>(*number)};
}

bool IsLoopback(const std::string& ip) {
    return ip.starts_with("127.");
}

std::string EndpointText(const Endpoint& endpoint) {
    return endpoint.ip + ":" + std::to_string(endpoint.port);
}

} // namespace sim
