// SPAT frames to measure with.
#pragma once

#include <cstdint>
#include <vector>

// The encoding of a SPAT with one intersection: `phases` phases (1 to 16) of `states` states each (1 to 16), counting
// down. Empty when it cannot be made.
std::vector<uint8_t> spatFrame(int phases, int states);
