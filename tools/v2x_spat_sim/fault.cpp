#include "fault.h"

#include <algorithm>
#include <cinttypes>

#include "text.h"

namespace sim {

using Lights = std::vector<PhaseLight>;
using std::chrono::nanoseconds;
using std::chrono::seconds;

struct PlanFault {
    const char* name;
    const char* what; // for people
    bool isForCloud;
    seconds length; // 0: one message
    // Changes the lights of one message. `first` are the lights of the plan at the start of the fault, `elapsed` ago.
    void (*change)(Lights& lights, const Lights& first, nanoseconds elapsed);
};

namespace {

constexpr seconds PAUSE{5};    // least time between two faults
constexpr seconds CONFLICT{2}; // time with conflicting green lights

// Turns the phases green and then yellow that are red until the end of the fault, so that only the conflict is a fault.
void ShowConflict(Lights& lights, const Lights& first, nanoseconds elapsed) {
    constexpr uint8_t LENGTH = 10;
    for (size_t i = 0; i < lights.size(); ++i) {
        if (first[i].colour == Colour::red && first[i].secondsLeft > LENGTH) {
            lights[i].colour = elapsed < CONFLICT ? Colour::green : Colour::yellow;
        }
    }
}

void RaiseTimes(Lights& lights, const Lights& /*first*/, nanoseconds /*elapsed*/) {
    constexpr int RISE = 10;
    constexpr int MAX_SECONDS = 254;
    for (PhaseLight& light : lights) {
        light.secondsLeft = static_cast<uint8_t>(std::min(light.secondsLeft + RISE, MAX_SECONDS));
    }
}

void Freeze(Lights& lights, const Lights& first, nanoseconds /*elapsed*/) {
    lights = first;
}

void HideYellow(Lights& lights, const Lights& /*first*/, nanoseconds /*elapsed*/) {
    for (PhaseLight& light : lights) {
        if (light.colour == Colour::yellow) {
            light = {light.phase, Colour::green, 1};
        }
    }
}

void AddDuplicate(Lights& lights, const Lights& /*first*/, nanoseconds /*elapsed*/) {
    PhaseLight light = lights.front();
    light.colour = light.colour == Colour::red ? Colour::green : Colour::red;
    lights.insert(lights.begin(), light);
}

void AddUnmapped(Lights& lights, const Lights& /*first*/, nanoseconds /*elapsed*/) {
    lights.insert(lights.begin(), {0, Colour::red, 1});
}

void Silence(Lights& lights, const Lights& /*first*/, nanoseconds /*elapsed*/) {
    lights.clear();
}

constexpr PlanFault FAULTS[] = {
    {"conflict", "red phases are green for 2 s, then yellow for 3 s", true, CONFLICT + seconds(3), ShowConflict},
    {"jump", "one message with 10 s more left", false, seconds(0), RaiseTimes},
    {"frozen", "15 s without a change", false, seconds(15), Freeze},
    {"no_yellow", "40 s with green instead of yellow", true, seconds(40), HideYellow}, // longer than each stage
    {"duplicate", "one message with two lights of the first phase", false, seconds(0), AddDuplicate},
    {"unmapped", "one message with a phase that feeds no SPAT phase", false, seconds(0), AddUnmapped},
    {"silence", "10 s without a message", true, seconds(10), Silence},
};

} // namespace

std::vector<FaultName> ListFaults(FaultUser user) {
    std::vector<FaultName> names;
    for (const PlanFault& fault : FAULTS) {
        if (fault.isForCloud || user == FaultUser::device) {
            names.push_back({fault.name, fault.what});
        }
    }
    return names;
}

FaultInjector::FaultInjector(const FaultOptions& options)
    : m_fault(options.kind.empty() ? nullptr : std::ranges::find(FAULTS, options.kind, &PlanFault::name)),
      m_interval(static_cast<int64_t>(60e9 / options.rate)), m_next(m_interval) {}

void FaultInjector::Apply(nanoseconds time, Lights& lights) {
    if (m_fault == nullptr) {
        return;
    }
    if (time >= m_next) {
        m_begin = time;
        m_end = time + m_fault->length;
        m_next = std::max(m_next + m_interval, m_end + PAUSE);
        m_firstLights = lights;
        ++m_count;
    }
    if (time <= m_end) {
        m_fault->change(lights, m_firstLights, time - m_begin);
    }
}

std::string FaultInjector::FormatState() const {
    return m_fault == nullptr ? "" : FormatText(" | %" PRIu64 " faults (%s)", m_count, m_fault->name);
}

} // namespace sim
