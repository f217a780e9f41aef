// Plays the signal learner: phase reports to the daemon, heartbeats from it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "endpoint.h"
#include "options.h"
#include "plan.h"
#include "report.h"

namespace sim {

struct LearnerOptions {
    RunOptions run;
    Endpoint target;
    Endpoint listen;
    double rate = 2; // reports per second
    PhaseRange phases;
    double start = 0;       // seconds into the plan at which the run begins
    std::string replayFile; // sent instead of the plan, unless empty
    bool replayLoop = false;
    double damage = 0; // share, 0 to 1
    std::vector<ReportKind> damageKinds;
    std::optional<uint32_t> seed; // of the damage; random when empty
};

// Runs until its limits, SIGINT or SIGTERM, and prints the summary. Throws std::exception with what went wrong.
void RunLearner(const LearnerOptions& options);

} // namespace sim
