// The subcommands that print what the daemon answers. Each function returns the exit status and throws NoDaemon if the
// daemon cannot be reached.
#pragma once

#include "options.h"

namespace ctl {

struct StatusOptions : DaemonOptions {
    bool isBrief = false; // prints one line
};

struct LightsOptions : DaemonOptions {
    bool isWatch = false; // shows the full-screen view
};

int RunCheck(const ConfigOptions& options);
int RunStatus(const StatusOptions& options); // 1: the unit has a problem
int RunLights(const LightsOptions& options);
int RunCounters(const DaemonOptions& options);
int RunConfig(const DaemonOptions& options);
int RunLevels(const DaemonOptions& options);
int RunWatch(const DaemonOptions& options); // ends with the connection

} // namespace ctl
