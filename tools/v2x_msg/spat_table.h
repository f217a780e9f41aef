// What a SPAT says, as a table for people.
#pragma once

#include <string>

#include "v2x/v2xmsgset.h"

namespace msg {

// Lines, each with its end: the message's own time and name, then for each intersection its identity and a row for each
// state of each of its phases. Times are in seconds; '-' stands for what is absent, '?' for a time that is unknown.
std::string SpatTable(const SPAT_t& spat);

} // namespace msg
