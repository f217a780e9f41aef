// Finds suspect settings, with which the daemon starts nevertheless. spat_conv_config.cpp calls this function at the
// end of a load.
#pragma once

#include <vector>

#include "spat_conv_config.h"

// Reports keys that are not in `knownKeys`, values out of range, ports that are used twice and settings without effect,
// and adds the notes.
// v2xipc_CfgInit must have read the port table.
void v2xspatconv_Review(V2X_CFGHANDLE root, const spat_conv_config_t& config,
                        const std::vector<const char*>& knownKeys);
