// Formats the replies and events that have one simple form. The parameters are lines of the daemon.
#pragma once

#include <string>

#include "common/json.h"

namespace ctl {

std::string FormatCounters(const cJSON* reply); // a table of paths, counters and counts
std::string FormatConfig(const cJSON* reply);   // "key = value" for each setting, under the name of its file
std::string FormatLevels(const cJSON* reply);   // a table of tags and levels

// Returns an event of `watch`: "20:04:41.123 record learner 1 red 12.3, 2 dark -", or "lost 12 events".
std::string FormatEvent(const cJSON* event);

} // namespace ctl
