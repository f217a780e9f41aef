// The roles of the simulator. Each function adds the subcommand of one role. If the command line has the subcommand,
// parsing sets `run` to the role's function, which runs until a limit, SIGINT or SIGTERM and then prints the summary.
// The role's function throws std::exception with the reason of a failure. `run` must exist until the command line is
// parsed.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace sim {

using Run = std::function<void()>;

// The signal learner: sends phase reports to the daemon and receives heartbeats.
void AddLearner(CLI::App& app, Run& run);

// The traffic-signal controller: sends light-status frames to the daemon.
void AddController(CLI::App& app, Run& run);

// The stack application: checks and shows the daemon's frames, and answers the daemon's requests for SPAT.
void AddStack(CLI::App& app, Run& run);

// The cloud and the communication software of the road-side unit: shows the documents and status records that the
// daemon publishes, and publishes documents and the cloud's status for the daemon.
void AddCloud(CLI::App& app, Run& run);

} // namespace sim
