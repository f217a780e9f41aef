// Standard error as a last resort: never waits for a reader.
#pragma once

#include <string_view>

// Writes one line with its newline, cut to 4096 bytes, when it fits without waiting. False: it was dropped.
bool v2xlog_WriteStderr(std::string_view line);
