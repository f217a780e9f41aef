// SPAT frames for benchmarks.
#pragma once

#include <cstdint>
#include <vector>

// Returns the PER encoding of a SPAT with one intersection, `phases` phases (1 to 16) and `states` states a phase (1 to
// 16) with countdown timing. Returns no bytes when encoding fails.
std::vector<uint8_t> spatFrame(int phases, int states);
