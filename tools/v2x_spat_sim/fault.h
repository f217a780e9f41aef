// Injects faults into the signal plan, for demonstrations and tests of the daemon's checks.
#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <vector>

#include "plan.h"

namespace sim {

struct FaultOptions {
    std::string kind; // a name of ListFaults; empty: no faults
    double rate = 2;  // faults per minute
};

enum class FaultUser { device, cloud };

struct FaultName {
    std::string name;
    std::string what; // for people
};

// Returns the kinds of faults that a device or the cloud can have.
std::vector<FaultName> ListFaults(FaultUser user);

struct PlanFault;

// Changes the lights of the messages that are sent during a fault. The first fault starts one interval after the start
// of the run. Each fault ends at least 5 s before the next one starts, which limits the rate. Nothing is random.
class FaultInjector {
public:
    explicit FaultInjector(const FaultOptions& options);

    // `lights` are the lights of the plan at `time` after the start, at least one. Times must not decrease. Removes all
    // lights if no message must be sent. Can insert an additional light before the others: with the first phase in
    // another colour, or with phase 0.
    void Apply(std::chrono::nanoseconds time, std::vector<PhaseLight>& lights);
    // Returns text for people: " | 2 faults (conflict)". Returns an empty string if no faults are injected.
    std::string FormatState() const;

private:
    const PlanFault* m_fault; // null: no faults
    std::chrono::nanoseconds m_interval;
    std::chrono::nanoseconds m_next;       // start of the next fault
    std::chrono::nanoseconds m_begin{};    // start of the last fault
    std::chrono::nanoseconds m_end{-1};    // end of the last fault
    std::vector<PhaseLight> m_firstLights; // at the start of the last fault
    uint64_t m_count = 0;
};

} // namespace sim
