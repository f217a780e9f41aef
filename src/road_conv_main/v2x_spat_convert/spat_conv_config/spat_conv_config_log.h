// The module's log tag, shared by its files.
#pragma once

#include "v2x/v2xlog.h"

inline v2xlog_tag_t g_scfgLog{"SCFG"};
