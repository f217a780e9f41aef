// The lights of the reply to the request lights.
#pragma once

#include <optional>
#include <string>

#include "common/json.h"

namespace ctl {

// Returns the age in seconds from which a light of the source is old: the source's stale_after in the reply `status`,
// 10 s for a source that is not watched, 3 s for the daemon's own record. The latter has no source: an empty name.
double OldAfter(const cJSON* status, const std::string& source);

// Returns true if the source of a light is stale, or if no record has contained its phase for too long. `sinceReply`
// is the age of the reply in seconds.
bool IsOld(const cJSON* status, const cJSON* light, double sinceReply);

// Returns the seconds until the light changes, at least 0. Returns an empty optional if the time is unknown.
std::optional<double> CountDown(const cJSON* light, double sinceReply);

// Returns false if the environment variable NO_COLOR has a value.
bool AllowsColours();

// Returns the table of the subcommand lights from the replies `status` and `lights`.
std::string FormatLights(const cJSON* status, const cJSON* reply, bool hasColours);

} // namespace ctl
