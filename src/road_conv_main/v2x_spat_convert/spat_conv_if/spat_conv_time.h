// Time fields of SPAT records, from one reading of the wall clock.
#pragma once

#include <cstdint>

#include "v2x/v2xlog.h"

// Returns the minute of the year in local time, 0 to 527039. `now` is in microseconds since 1970-01-01 UTC. Traces
// under `tag`. Any thread.
int32_t GetMoyOfTheYear(v2xlog_tag_t& tag, uint64_t now);

// Returns the millisecond of the minute, 0 to 59999. All time zones are whole minutes, so UTC gives the same result.
int32_t GetSecMarkOfTheMinute(v2xlog_tag_t& tag, uint64_t now);
