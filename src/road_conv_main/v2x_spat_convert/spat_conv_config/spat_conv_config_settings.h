// Lists the settings in force, for people.
#pragma once

#include <cjson/cJSON.h>

#include "spat_conv_config.h"

// Returns an array with one object for each setting of the three configuration files: "file", "key", "value" (boolean,
// number, text or array), "default" (true if the file does not contain the key). Settings of one group are adjacent.
// `config` is the loaded configuration. The caller frees the array. Any thread.
cJSON* v2xspatconv_ListSettings(const spat_conv_config_t& config);
