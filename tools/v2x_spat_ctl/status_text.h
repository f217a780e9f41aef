// Formats the reply to the request status, and judges whether the unit works.
#pragma once

#include <string>
#include <vector>

#include "clock.h"
#include "common/json.h"

namespace ctl {

// In the functions below, `status` is the reply of the daemon. Null gives empty texts.

// Returns all lines of the subcommand status.
std::string FormatStatus(const cJSON* status, ClockState clock);

// Returns one line for a monitoring system: "OK: learner fresh 0.3 s, stack answers" or "PROBLEM: learner stale 71.2
// s".
std::string FormatBrief(const cJSON* status);

// Returns what is wrong: required sources that are not fresh, a stack application that does not answer, active checks.
// The unit works if there is nothing.
std::vector<std::string> FindProblems(const cJSON* status);

// Return parts of the lines above.
std::string FormatIdentity(const cJSON* status); // "v2x_spat_convert VERSION (release 1.0.0), pid 812, …"
std::vector<std::string> MakeSourceCells(const cJSON* source); // name, peer, state, age, rate, accepted, refused
std::string FormatStack(const cJSON* status);                  // "127.0.0.1:20010 answers, 0.2 s ago"
std::string FormatStackState(const cJSON* status);             // "answers", "silent" or "not asked yet"
std::string FormatCloud(const cJSON* status);                  // "available; 1 reader of rsu/RSU0001/spat/up"

} // namespace ctl
