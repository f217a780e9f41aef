// Parses the daemon's frames to the stack application, and formats them for people and for programs. The parser rejects
// each frame that does not match the wire records of v2x/v2xipc_data.h. The parser and the daemon share no code, so
// that a fault in the daemon's code does not go unnoticed.
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
    uint16_t end;   // 0.1 s, or V2XIPC_TIME_UNKNOWN
    // Empty if absent on the wire. Times in 0.1 s.
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
    uint64_t sendTime; // of the frame header, in microseconds since 1970
    uint32_t intersection;
    uint16_t status;
    uint32_t moy;     // minute of the year, or NO_MINUTE if absent
    uint16_t secMark; // millisecond of the minute, or NO_MILLISECOND if absent
    int8_t phaseNum;  // the number of phase entries that the record claims
    std::vector<Phase> phases;
    uint32_t emptyEntries; // entries with id 0 and no states, which pad the record; `phases` does not contain them
};
inline constexpr uint32_t NO_MINUTE = 0xFFFFFFFF;
inline constexpr uint16_t NO_MILLISECOND = 65535;

// The daemon's request for the stack application's SPAT.
struct SpatRequest {};

// The reasons to reject a frame, in the order of the checks.
enum class Fault : size_t {
    length,   // the frame is shorter than header and data block
    flag,     // the frame does not begin with A5 5A
    packLen,  // the header's length differs from the number of bytes after the header
    cmd,      // the command is not V2XIPC_CMD_TO_STACK
    dataType, // the data is neither a record nor a request
    dataNo,   // the data number is not V2XIPC_DATA_NO_SPAT_RECORD
    dataLen,  // the block's length differs from the number of bytes after the block, or a request has data
    record,   // the phase entries do not end at the end of the record
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

// Parses any datagram, without a read past its end. Any thread.
Frame ReadFrame(std::span<const uint8_t> datagram);

// Returns one line for people per phase: time of the record, intersection, phase, light, remaining seconds. Returns one
// line for a record without phases.
std::vector<std::string> RecordLines(const SpatRecord& record);
std::string RejectionLine(const Rejection& rejection);

// Both functions return a JSON object in one line. The times of states are in 0.1 s, or null if unknown. receiveTime
// and sendTime are in microseconds since 1970.
std::string RecordJson(const SpatRecord& record, uint64_t receiveTime);
std::string RejectionJson(const Rejection& rejection);

} // namespace sim
