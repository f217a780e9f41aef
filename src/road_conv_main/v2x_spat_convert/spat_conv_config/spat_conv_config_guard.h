// Reads the settings of the guard: the keys whose invalid values end start-up. spat_conv_config.cpp calls these
// functions during a load.
#pragma once

#include <cjson/cJSON.h>

#include <functional>
#include <string>
#include <vector>

#include "spat_conv_config.h"

// Appends the names of the keys that v2xspatconv_ReadGuard reads. In a name, a '#' at the end means 0 to 255.
void v2xspatconv_AddGuardKeys(std::vector<const char*>& keys);

// Fills the guard settings, m_control_path and m_quiet_log of `config`, whose other settings are already read. Reports
// every invalid value. Returns the text of the first report, "file:line: key: reason", or "" if all values are valid.
std::string v2xspatconv_ReadGuard(V2X_CFGHANDLE root, spat_conv_config_t& config);

// Calls `visit` with the key and the value of each setting of the guard. `visit` owns the value.
void v2xspatconv_VisitGuard(const spat_conv_config_t& config,
                            const std::function<void(const char* key, cJSON* value)>& visit);

// Returns the reason why the daemon cannot map the phases, or null if both phases are in their range.
const char* v2xspatconv_CheckPhases(int32_t spatPhase, int32_t devicePhase);
