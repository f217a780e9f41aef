// The log tag of this library.
#pragma once

#include "v2x/v2xlog.h"

inline v2xlog_tag_t g_v2xddsLog{"SDDS"};
