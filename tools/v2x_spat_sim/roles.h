// The simulators' roles: each function adds its subcommand. When the command line chooses it, parsing sets `run` to the
// function that plays the role until its limits, SIGINT or SIGTERM, and prints the summary. That function throws
// std::exception with the reason when it fails. `run` must live until the command line is parsed.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace sim {

using Run = std::function<void()>;

// The signal learner: sends phase reports to the daemon and gets heartbeats.
void AddLearner(CLI::App& app, Run& run);

// The traffic-signal controller: sends light-status frames to the daemon.
void AddController(CLI::App& app, Run& run);

// The stack application: checks and shows the daemon's frames, and answers its requests for SPAT.
void AddStack(CLI::App& app, Run& run);

// The cloud and the unit's communication software: shows the documents and status records that the daemon publishes,
// and publishes documents and the cloud's status for it.
void AddCloud(CLI::App& app, Run& run);

} // namespace sim
