// Metrics of the daemon in the text format of Prometheus.
#pragma once

#include <functional>
#include <string>
#include <string_view>

#include "clock.h"
#include "common/json.h"
#include "options.h"

namespace ctl {

// Formats the replies to the requests `status` and `counters`. Without a daemon `status` is null; the text then has
// v2x_spat_up 0 and the clock.
std::string FormatMetrics(const cJSON* status, const cJSON* counters, ClockState clock);

// Asks the daemon with `request`, which returns a reply or throws NoDaemon, and returns the metrics.
std::string ReadMetrics(const std::function<std::string(std::string_view name)>& request);

// Subcommand metrics. Returns the exit status. Without a daemon prints v2x_spat_up 0, then throws NoDaemon.
int RunMetrics(const DaemonOptions& options);

} // namespace ctl
