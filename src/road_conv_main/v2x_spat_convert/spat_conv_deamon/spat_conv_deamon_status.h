// The status line of the daemon for people.
#pragma once

#include <cstdint>
#include <string>

#include "spat_conv_gate.h"
#include "spat_conv_stack_interface.h"

// Returns the status line, for example "learner fresh, 1743 stale 71 s, stack answers, cloud available". `now` is the
// monotonic time in microseconds. The line contains the cloud's records only if they are watched. Any thread.
std::string v2xspatconv_FormatStatus(const v2xspatconv_sourceRow_t (&rows)[V2XSPATCONV_SOURCES],
                                     v2xspatconv_stackState stack, bool isCloudAvailable, uint64_t now);
