// The subcommands that print what the daemon answers. Each function returns the exit status and throws NoDaemon if the
// daemon cannot be reached.
#pragma once

#include "options.h"

namespace ctl {

int RunCheck(const ConfigOptions& options);
int RunCounters(const DaemonOptions& options);

} // namespace ctl
