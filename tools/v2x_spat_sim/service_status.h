// Status of a service of the unit, as its processes publish it: 26 bytes, low byte first. Service (1), run status (1),
// packets sent (4), time of the last one (8), packets received (4), time of the last one (8).
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>

namespace sim {

inline constexpr uint8_t SERVICE_CLOUD = 5;
inline constexpr uint8_t RUN_AVAILABLE = 1;
inline constexpr uint8_t RUN_UNAVAILABLE = 2;

struct ServiceStatus {
    uint8_t service = 0;
    uint8_t run = 0;
    uint32_t sent = 0;
    uint64_t lastSent = 0; // microseconds since 1970; 0 = never
    uint32_t received = 0;
    uint64_t lastReceived = 0; // the same
};

// The bytes, in a string as they are published.
std::string EncodeStatus(const ServiceStatus& status);

// Empty for another number of bytes than a record has.
std::optional<ServiceStatus> ReadStatus(std::span<const uint8_t> bytes);

// "SPAT available, 3 sent, 4 received"; "service 9", "run status 0" for numbers that have no name.
std::string StatusText(const ServiceStatus& status);

} // namespace sim
