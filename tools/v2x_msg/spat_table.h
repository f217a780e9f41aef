// Formats a SPAT as a table.
#pragma once

#include <string>

#include "v2x/v2xmsgset.h"

namespace msg {

// Returns several lines of text. The first line has the message's time and name. For each intersection follow its id,
// time and status, and one row for each state of each phase. Times are in seconds; '-' means absent, '?' means that the
// sender does not know the time.
std::string FormatSpat(const SPAT_t& spat);

} // namespace msg
