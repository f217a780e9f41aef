// Signal plan of a four-arm intersection: eight movements in four stages, always the same cycle.
//
// Movements, by their number in the plan: 1 to 4 straight on from north, east, south and west; 5 to 8 left turn from
// the same arms. Stages: north-south straight, north-south left, east-west straight, east-west left; each is green,
// then yellow for 3 s, then red for all for 2 s.
#pragma once

#include <chrono>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sim {

enum class Colour { green, red, yellow };

struct PhaseLight {
    uint8_t phase; // device phase number
    Colour colour;
    uint8_t secondsLeft; // until this phase's next change, rounded up: 1 in the last second
};

// The device phases `first`, `first` + 1, ... play the movements 1 to 8; those beyond the eighth start again at
// movement 1. first + count - 1 must not exceed 255.
struct PhaseRange {
    unsigned first = 1;
    unsigned count = 8;
};

inline constexpr int MAX_PLAN_PHASES = 36;

// The lights `time` after the plan's start, one entry per phase in order of their numbers. Any thread.
std::vector<PhaseLight> PlanAt(std::chrono::nanoseconds time, PhaseRange phases);

// One line for people: "1 G15  2 R50  ...".
std::string PlanText(std::span<const PhaseLight> lights);

} // namespace sim
