#include "service_status.h"

#include <cinttypes>
#include <cstring>

#include "text.h"

namespace sim {
namespace {

static_assert(__BYTE_ORDER__ == __ORDER_LITTLE_ENDIAN__, "the numbers are copied as they lie in memory");

constexpr size_t STATUS_SIZE = 26;

// Calls `visit` with each number, in the order of the wire.
template <typename Status, typename Visit>
void EachNumber(Status& status, Visit visit) {
    visit(status.service);
    visit(status.run);
    visit(status.sent);
    visit(status.lastSent);
    visit(status.received);
    visit(status.lastReceived);
}

std::string Name(std::span<const char* const> names, const char* what, uint8_t number) {
    const bool isKnown = number < names.size() && names[number] != nullptr;
    return isKnown ? names[number] : FormatText("%s %u", what, number);
}

} // namespace

std::string EncodeStatus(const ServiceStatus& status) {
    std::string bytes;
    EachNumber(status, [&](auto number) {
        char copy[sizeof number];
        std::memcpy(copy, &number, sizeof number);
        bytes.append(copy, sizeof number);
    });
    return bytes;
}

std::optional<ServiceStatus> ReadStatus(std::span<const uint8_t> bytes) {
    if (bytes.size() != STATUS_SIZE) {
        return std::nullopt;
    }
    ServiceStatus status;
    EachNumber(status, [&](auto& number) {
        std::memcpy(&number, bytes.data(), sizeof number);
        bytes = bytes.subspan(sizeof number);
    });
    return status;
}

std::string StatusText(const ServiceStatus& status) {
    constexpr const char* SERVICES[] = {nullptr, "MAP", "SPAT", "RSI", "RSM", "cloud"};
    constexpr const char* RUNS[] = {nullptr, "available", "unavailable"};
    return FormatText("%s %s, %" PRIu32 " sent, %" PRIu32 " received",
                      Name(SERVICES, "service", status.service).c_str(), Name(RUNS, "run status", status.run).c_str(),
                      status.sent, status.received);
}

} // namespace sim
