#include "plan.h"

#include <array>

#include "text.h"

namespace sim {
namespace {

using std::chrono::nanoseconds;
using std::chrono::seconds;

constexpr seconds YELLOW{3};
constexpr seconds ALL_RED{2};

struct Stage {
    seconds green;
    std::array<size_t, 2> movements;
};
constexpr Stage STAGES[] = {
    {seconds{27}, {1, 3}}, // north-south straight
    {seconds{13}, {5, 7}}, // north-south left
    {seconds{20}, {2, 4}}, // east-west straight
    {seconds{10}, {6, 8}}, // east-west left
};

struct GreenTime {
    seconds start{}; // since the start of the cycle
    seconds length{};
};

struct Cycle {
    seconds length{};
    std::array<GreenTime, MOVEMENTS> greens{};
};

constexpr Cycle MakeCycle() {
    Cycle cycle;
    for (const Stage& stage : STAGES) {
        for (const size_t movement : stage.movements) {
            cycle.greens[movement - 1] = {cycle.length, stage.green};
        }
        cycle.length += stage.green + YELLOW + ALL_RED;
    }
    return cycle;
}

constexpr Cycle CYCLE = MakeCycle();
static_assert(CYCLE.length < seconds{255}, "255 means an unknown time left");

PhaseLight ComputeLight(const GreenTime& green, nanoseconds time) {
    const nanoseconds length = CYCLE.length;
    const nanoseconds sinceGreen = ((time - green.start) % length + length) % length;
    const auto light = [&](Colour colour, seconds end) {
        return PhaseLight{0, colour, static_cast<uint8_t>(std::chrono::ceil<seconds>(end - sinceGreen).count())};
    };
    if (sinceGreen < green.length) {
        return light(Colour::green, green.length);
    }
    if (sinceGreen < green.length + YELLOW) {
        return light(Colour::yellow, green.length + YELLOW);
    }
    return light(Colour::red, CYCLE.length);
}

} // namespace

std::vector<PhaseLight> PlanAt(nanoseconds time, PhaseRange phases) {
    std::vector<PhaseLight> lights;
    lights.reserve(phases.count);
    for (size_t index = 0; index < phases.count; ++index) {
        PhaseLight light = ComputeLight(CYCLE.greens[index % MOVEMENTS], time);
        light.phase = static_cast<uint8_t>(phases.first + index);
        lights.push_back(light);
    }
    return lights;
}

std::string FormatPlan(std::span<const PhaseLight> lights) {
    constexpr char LETTERS[] = {'G', 'R', 'Y'};
    std::string line;
    for (const PhaseLight& light : lights) {
        line += FormatText("%s%u %c%-2u", line.empty() ? "" : "  ", light.phase,
                           LETTERS[static_cast<size_t>(light.colour)], light.secondsLeft);
    }
    return line;
}

} // namespace sim
