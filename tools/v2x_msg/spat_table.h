// Shows a SPAT as a table.
#pragma once

#include <string>

#include "v2x/v2xmsgset.h"

namespace msg {

// Returns lines: the message's time and name, then for each intersection its identity and a row for each state of each
// phase. Times are in seconds; '-' means absent, '?' a time that the sender does not know.
std::string SpatTable(const SPAT_t& spat);

} // namespace msg
