// An open configuration file, for the sources of this library.
#pragma once

#include <string>

#include <libconfig.h>

#include "v2x/v2xlog.h"

inline v2xlog_tag_t g_vcfgLog{"VCFG"};

struct v2xcfg_context {
    explicit v2xcfg_context(const char* file) : path(file) { config_init(&config); }
    ~v2xcfg_context() { config_destroy(&config); }
    v2xcfg_context(const v2xcfg_context&) = delete;
    v2xcfg_context& operator=(const v2xcfg_context&) = delete;

    const std::string path;
    config_t config{};
};

// Returns the name of a libconfig type with its article, for error texts: "a group".
inline const char* v2xcfg_TypeName(int type) {
    static constexpr const char* NAMES[] = {
        "nothing",  "a group",   "an integer", "an integer", "a floating-point number",
        "a string", "a boolean", "an array",   "a list",
    };
    static_assert(sizeof(NAMES) / sizeof(*NAMES) == CONFIG_TYPE_LIST + 1);
    return NAMES[type];
}

// Stores that a file contains the key, for v2xcfg_HasKey.
void v2xcfg_AddFoundKey(const std::string& key);
