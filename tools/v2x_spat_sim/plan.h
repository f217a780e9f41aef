// The signal plan of a four-arm intersection: a fixed cycle of four stages for eight movements.
//
// Movements 1 to 4 go straight on, from north, east, south and west. Movements 5 to 8 turn left, from the same arms.
// The stages are north-south straight on, north-south left, east-west straight on, east-west left. Each stage has a
// green time, then 3 s of yellow, then 2 s of red for all movements.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <vector>

namespace sim {

enum class Colour { green, red, yellow };

struct PhaseLight {
    uint8_t phase; // device phase number
    Colour colour;
    uint8_t secondsLeft; // time until the phase's light changes, rounded up
};

// Device phase `first` shows movement 1, the next phase movement 2, and so on. After movement 8 the next phase shows
// movement 1 again. first + count - 1 must not exceed 255.
struct PhaseRange {
    unsigned first = 1;
    unsigned count = 8;
};

inline constexpr size_t MOVEMENTS = 8;
inline constexpr int MAX_PLAN_PHASES = 36;

// Returns the lights at the given time after the plan's start, one entry per phase in ascending order. Any thread.
std::vector<PhaseLight> PlanAt(std::chrono::nanoseconds time, PhaseRange phases);

// Formats the lights as one line for people: "1 G15  2 R50  ...".
std::string FormatPlan(std::span<const PhaseLight> lights);

} // namespace sim
