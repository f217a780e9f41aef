// Subcommand check: finds the problems of a configuration before the daemon starts with it.
#pragma once

#include <string>

namespace ctl {

struct CheckResult {
    std::string text; // problems, notes, phase mapping, identity and ports, for the operator
    std::string json; // the same as one JSON object: problems, notes, device, region, node, intersection, phases, ports
    bool isValid;     // true: no problem; notes do not count
};

// Loads the configuration of the work directory with the daemon's own code. Call this function once in a process.
CheckResult CheckConfiguration(const std::string& workDir);

} // namespace ctl
