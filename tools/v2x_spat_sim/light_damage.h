// Damage to light-status frames.
#pragma once

#include <cstdint>
#include <vector>

#include "light_frame.h"

namespace sim {

// Makes a good frame one of `kind`; `random` chooses among the many ways to do so. Returns false, and leaves the frame
// alone, when it is not good, when it cannot be damaged in this way (nothing in it is escaped, all counts are at 255),
// or when `kind` is good.
//
// Whoever takes the damaged frame between its own delimiters finds the CRC wrong, after wrong length and wrong escape
// as well, or finds another type, or counts that reach beyond the end. A frame that lacks a delimiter is whole all the
// same where that of a neighbour stands in for it.
bool DamageFrame(std::vector<uint8_t>& frame, FrameKind kind, uint32_t random);

} // namespace sim
