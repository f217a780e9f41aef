// The log tag of the configuration module.
#pragma once

#include "v2x/v2xlog.h"

inline v2xlog_tag_t g_scfgLog{"SCFG"};
