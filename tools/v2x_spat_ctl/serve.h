// Subcommand serve: web page, metrics and the daemon's state over HTTP.
#pragma once

#include <string>
#include <vector>

#include "common/endpoint.h"
#include "options.h"

namespace ctl {

struct ServeOptions : DaemonOptions {
    tools::Endpoint listen{"127.0.0.1", 8080};
    std::vector<std::string> hosts; // more names that a request's Host header may have
};

// Serves until SIGINT or SIGTERM, whether the daemon runs or not. Returns the exit status. Throws std::runtime_error if
// the address cannot be bound, and NoDaemon if no control socket is named. Call this function before any thread starts.
int RunServe(const ServeOptions& options);

} // namespace ctl
