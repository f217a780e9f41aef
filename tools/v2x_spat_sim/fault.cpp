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
    bool isForCloud;
    seconds length; // 0: one message
    // Changes the lights of one message. `first` are the lights of the plan at the begin of the fault.
    void (*change)(Lights& lights, const Lights& first);
};

namespace {

constexpr seconds PAUSE{5}; // least time between two faults

void ShowAllGreen(Lights& lights, const Lights& /*first*/) {
    for (PhaseLight& light : lights) {
        light.colour = Colour::green;
    }
}

void RaiseTimes(Lights& lights, const Lights& /*first*/) {
    constexpr int RISE = 10;
    constexpr int MAX_SECONDS = 254;
    for (PhaseLight& light : lights) {
        light.secondsLeft = static_cast<uint8_t>(std::min(light.secondsLeft + RISE, MAX_SECONDS));
    }
}

void Freeze(Lights& lights, const Lights& first) {
    lights = first;
}

void HideYellow(Lights& lights, const Lights& /*first*/) {
    for (PhaseLight& light : lights) {
        if (light.colour == Colour::yellow) {
            light = {light.phase, Colour::green, 1};
        }
    }
}

void AddDuplicate(Lights& lights, const Lights& /*first*/) {
    PhaseLight light = lights.front();
    light.colour = light.colour == Colour::red ? Colour::green : Colour::red;
    lights.insert(lights.begin(), light);
}

void AddUnmapped(Lights& lights, const Lights& /*first*/) {
    lights.insert(lights.begin(), {0, Colour::red, 1});
}

void Silence(Lights& lights, const Lights& /*first*/) {
    lights.clear();
}

constexpr PlanFault FAULTS[] = {
    {"conflict", true, seconds(2), ShowAllGreen},
    {"jump", false, seconds(0), RaiseTimes},
    {"frozen", false, seconds(15), Freeze},
    {"no_yellow", true, seconds(40), HideYellow}, // longer than the longest stage
    {"duplicate", false, seconds(0), AddDuplicate},
    {"unmapped", false, seconds(0), AddUnmapped},
    {"silence", true, seconds(10), Silence},
};

} // namespace

std::vector<std::string> FaultNames(FaultUser user) {
    std::vector<std::string> names;
    for (const PlanFault& fault : FAULTS) {
        if (fault.isForCloud || user == FaultUser::device) {
            names.emplace_back(fault.name);
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
        m_end = time + m_fault->length;
        m_next = std::max(m_next + m_interval, m_end + PAUSE);
        m_firstLights = lights;
        ++m_count;
    }
    if (time <= m_end) {
        m_fault->change(lights, m_firstLights);
    }
}

std::string FaultInjector::FormatState() const {
    return m_fault == nullptr ? "" : FormatText(" | %" PRIu64 " faults (%s)", m_count, m_fault->name);
}

} // namespace sim
