// The values of the guard's settings as JSON. Private to the configuration.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>

#include "spat_conv_config.h"

// Returns the value of one setting. The caller owns the value. `source` is ignored for settings that belong to no
// source.
using v2xspatconv_showFun = cJSON* (*)(const spat_conv_config_t& config, e_v2xspatconv_source source);

cJSON* v2xspatconv_ShowLocalIp(const spat_conv_config_t& config, e_v2xspatconv_source source);
cJSON* v2xspatconv_ShowOnlyFrom(const spat_conv_config_t& config, e_v2xspatconv_source source);
cJSON* v2xspatconv_ShowStaleAfter(const spat_conv_config_t& config, e_v2xspatconv_source source);
cJSON* v2xspatconv_ShowOwnPhases(const spat_conv_config_t& config, e_v2xspatconv_source source);
cJSON* v2xspatconv_ShowPriority(const spat_conv_config_t& config, e_v2xspatconv_source source);
cJSON* v2xspatconv_ShowOnStale(const spat_conv_config_t& config, e_v2xspatconv_source source);
cJSON* v2xspatconv_ShowConflicts(const spat_conv_config_t& config, e_v2xspatconv_source source);
cJSON* v2xspatconv_ShowOnConflict(const spat_conv_config_t& config, e_v2xspatconv_source source);
cJSON* v2xspatconv_ShowOnFrozen(const spat_conv_config_t& config, e_v2xspatconv_source source);
cJSON* v2xspatconv_ShowIgnore(const spat_conv_config_t& config, e_v2xspatconv_source source);
cJSON* v2xspatconv_ShowControlPath(const spat_conv_config_t& config, e_v2xspatconv_source source);

// Returns the mapped phases of a phase table: an array of pairs [SPAT phase, device phase].
cJSON* v2xspatconv_ShowPhases(const uint16_t (&phases)[256]);
