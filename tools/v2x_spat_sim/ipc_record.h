// Reads the daemon's frames as the stack application gets them, and shows them for people and for programs. It rejects
// whatever differs from the wire records of v2x/v2xipc_data.h. It shares no code with the daemon, so that each checks
// the other.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <variant>
#include <vector>

#include "summary.h"

namespace sim {

struct PhaseState {
    int8_t mode;
    uint8_t light;
    uint16_t start; // 0.1 s
    uint16_t end;   // 0.1 s, V2XIPC_TIME_UNKNOWN = unknown
    // Empty when absent.
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
    uint32_t moy;     // minute of the year, NO_MINUTE = absent
    uint16_t secMark; // millisecond of the minute, NO_MILLISECOND = absent
    int8_t phaseNum;  // as reported
    std::vector<Phase> phases;
    uint32_t emptyEntries; // with id 0 and without states: padding up to phaseNum, not among `phases`
};
inline constexpr uint32_t NO_MINUTE = 0xFFFFFFFF;
inline constexpr uint16_t NO_MILLISECOND = 65535;

// The daemon asks for the stack's own SPAT.
struct SpatRequest {};

// Why a frame is rejected, in the order of the checks.
enum class Fault : size_t {
    length,   // shorter than header and data block
    flag,     // does not begin with A5 5A
    packLen,  // is not the number of bytes after the header
    cmd,      // is not the command of frames to the stack
    dataType, // neither record nor request
    dataNo,   // not the number that a record must have
    dataLen,  // is not the number of bytes after the data block, or a request has data
    record,   // the phase entries do not fill the record exactly
};
inline constexpr KindName FAULTS[] = {
    {nullptr, "refusedLength", "length"},     {nullptr, "refusedFlag", "flag"},
    {nullptr, "refusedPackLen", "packLen"},   {nullptr, "refusedCmd", "cmd"},
    {nullptr, "refusedDataType", "dataType"}, {nullptr, "refusedDataNo", "dataNo"},
    {nullptr, "refusedDataLen", "dataLen"},   {nullptr, "refusedRecord", "record"},
};

struct Rejection {
    Fault fault;
    std::string why;
};

using Frame = std::variant<SpatRecord, SpatRequest, Rejection>;

// Any thread. Reads nothing outside the datagram, whatever it holds.
Frame ReadFrame(std::span<const uint8_t> datagram);

// For people, one line per phase: time of the reading, intersection, phase, light, seconds left. A record without
// phases is one line as well.
std::vector<std::string> RecordLines(const SpatRecord& record);
std::string RejectionLine(const Rejection& rejection);

// For programs, one object in one line. Times of states are 0.1 s as on the wire, null when unknown; receiveTime and
// sendTime are microseconds since 1970.
std::string RecordJson(const SpatRecord& record, uint64_t receiveTime);
std::string RejectionJson(const Rejection& rejection);

} // namespace sim
