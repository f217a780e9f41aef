// The plausibility checks of the gate. Private to the gate; the caller holds the gate's lock.
//
// Each check compares the consecutive records of one source, at most 2 s apart. A check is active from its first sight
// until it has not been seen for a minute. One line at V2XLOG_WARN reports the start with the values, one line at
// V2XLOG_INFO the end with the count. "unmapped" and "cut_off" are logged once and never active. The counters of the
// path "check" count every sight.
#pragma once

#include <cstdint>

#include "spat_conv_gate.h"
#include "spat_conv_gate_lights.h"

// One record of a source.
struct v2xspatconv_sighting_t {
    e_v2xspatconv_source source;
    const v2xspatconv_lights_t& lights; // empty if the record carries no lights
    const v2xspatconv_findings_t& findings;
    v2xpub_address_t sender;
    bool isFresh; // true: the source is watched and fresh
    uint64_t now;
};

// What to replace in the record.
struct v2xspatconv_verdict_t {
    bool hasConflict; // true from a record with a conflict on, until two records in a row are free of conflicts
    uint64_t frozen;  // bit n: SPAT phase n is frozen, until two records in a row are free of it
};

// Forgets everything and reads the settings.
void v2xspatconv_ChecksInit(const spat_conv_config_t& config);

// Runs all checks on one record.
v2xspatconv_verdict_t v2xspatconv_ChecksExamine(const v2xspatconv_sighting_t& sighting);

// Ends the checks that have not been seen for a minute. Returns the time at which the next active check can end, or
// UINT64_MAX.
uint64_t v2xspatconv_ChecksTick(uint64_t now);

// Returns the number of active checks.
int32_t v2xspatconv_ChecksCountActive(void);
