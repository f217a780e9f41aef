// SPAT records as text, for people and for programs.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "ipc_record.h"

namespace sim {

// Name of a LightState code, "permissive green"; "light 9" for codes that have none.
std::string LightName(uint8_t light);

// One line per phase: time of the reading, intersection, phase, light, seconds left; one line that says so for a record
// without phases.
std::vector<std::string> RecordLines(const SpatRecord& record);

// One object in one line. Times of states are 0.1 s as on the wire, null when unknown; receiveTime and sendTime are
// microseconds since 1970.
std::string RecordJson(const SpatRecord& record, uint64_t receiveTime);

// The same two for a frame that was refused.
std::string RefusalLine(const Refusal& refusal);
std::string RefusalJson(const Refusal& refusal);

} // namespace sim
