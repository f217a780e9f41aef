// Times in the lines of the daemon.
#pragma once

#include <cstdint>
#include <string>

namespace ctl {

// Parses "2026-11-22T20:04:41.123Z". Returns microseconds since 1970. Throws std::runtime_error for any other text.
uint64_t ParseTime(const std::string& text);

} // namespace ctl
