// A SPAT message that says what a record says.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

#include "ipc_record.h"

namespace sim {

// What one message can hold of them.
inline constexpr size_t MAX_SPAT_PHASES = 16;
inline constexpr size_t MAX_SPAT_STATES = 16; // of a phase

// A frame with one intersection: id and status, the phases that have states, times that count down. The message's time
// is that of the reading. What is beyond the most that a message holds is left out. Empty when the record says
// something that cannot be encoded: no phases with states, a light or time that the message set does not have.
std::optional<std::vector<uint8_t>> BuildSpat(const SpatRecord& record);

} // namespace sim
