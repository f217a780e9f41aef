// Makes SPAT frames for benchmarks.
#pragma once

#include <cstdint>
#include <vector>

// Returns the PER encoding of a SPAT with one intersection, `phases` phases (1 to 16) and `states` states a phase (1 to
// 16) with countdown timing. Returns an empty vector if encoding fails.
std::vector<uint8_t> encodeSpatFrame(int phases, int states);
