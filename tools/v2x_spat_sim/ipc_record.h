// Reads the daemon's frames as the stack application gets them, and refuses what is not as the wire records of
// v2x/v2xipc_data.h tell. Written on its own, beside the daemon's code, so that one checks the other.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

namespace sim {

struct PhaseState {
    int8_t mode;
    uint8_t light;
    uint16_t start; // 0.1 s
    uint16_t end;   // 0.1 s, V2XIPC_TIME_UNKNOWN = unknown
    // Empty where the record has no value.
    std::optional<uint16_t> maxEnd;
    std::optional<uint16_t> minEnd;
    std::optional<uint16_t> nextStart;
    std::optional<uint16_t> nextDuration;
    std::optional<uint8_t> confidence;
};

struct Phase {
    uint8_t id;
    std::vector<PhaseState> states;
};

struct SpatRecord {
    uint64_t sendTime; // microseconds since 1970, from the frame header
    uint32_t intersection;
    uint16_t status;
    uint32_t moy;
    uint16_t secMark;
    int8_t phaseNum; // as reported
    std::vector<Phase> phases;
    uint32_t emptyEntries; // id 0 without states: they pad the record up to phaseNum and are not among `phases`
};

// The daemon asks for the stack's own SPAT.
struct SpatRequest {};

// Rungs of the ladder, in the order in which they are climbed.
enum class Rung : size_t {
    length,   // header and data block are not whole
    flag,     // A5 5A
    packLen,  // is not what follows the header
    cmd,      // not the command of frames to the stack
    dataType, // neither record nor request
    dataNo,   // a record without the number that the stack asks for
    dataLen,  // is not what follows the data block, or a request with data
    record,   // entries do not fill the record exactly
};
inline constexpr size_t RUNGS = 8;
const char* RungName(Rung rung);

struct Refusal {
    Rung rung;
    std::string why;
};

using Frame = std::variant<SpatRecord, SpatRequest, Refusal>;

// Any thread. Reads nothing outside the datagram, whatever it holds.
Frame ReadFrame(std::span<const uint8_t> datagram);

} // namespace sim
