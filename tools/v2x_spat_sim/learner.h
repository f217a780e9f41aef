// Plays the signal learner: phase reports to the daemon, heartbeats from it.
#pragma once

#include <vector>

#include "device.h"
#include "plan.h"
#include "report.h"

namespace sim {

struct LearnerOptions {
    DeviceOptions device; // its readings are reports
    PhaseRange phases;
    std::vector<ReportKind> damageKinds;
};

// Runs until its limits, SIGINT or SIGTERM, and prints the summary. Throws std::exception with what went wrong.
void RunLearner(const LearnerOptions& options);

} // namespace sim
