// Counts the sights of the checks, and logs the start and the end of each activity. Private to the checks; the caller
// holds the gate's lock. v2xspatconv_ChecksTick belongs to this file, too.
#pragma once

#include <cstdint>
#include <initializer_list>

#include "spat_conv_config.h"

// Ends all activities without a line and forgets the logged notices.
void v2xspatconv_ActivityClear(void);

// Counts one sight of a check in a record of `source` at the time `now` (monotonic, microseconds). `phases` are the
// SPAT or device phases of the sight; a notice has exactly one. If the sight starts an activity, or is the first one of
// a notice for this phase, logs the values as a printf format with its arguments, truncated to 159 bytes.
__attribute__((format(printf, 5, 6))) void v2xspatconv_ActivitySee(e_v2xspatconv_check check,
                                                                   e_v2xspatconv_source source, uint64_t now,
                                                                   std::initializer_list<uint8_t> phases,
                                                                   const char* format, ...);
