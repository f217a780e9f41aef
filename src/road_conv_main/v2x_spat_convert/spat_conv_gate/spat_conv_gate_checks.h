// The plausibility checks of the gate. Private to the gate; the caller holds the gate's lock.
//
// The checks examine SPAT phases 1 to 32. Most of them compare the consecutive records of one source, at most 2 s
// apart; "disagree" compares the sources. A check of a source is active from its first sight until it has not been seen
// for a minute. One line at V2XLOG_WARN reports the start with the values, one line at V2XLOG_INFO the end with the
// count and the phases. "disagree" counts for the first of the two sources. "unmapped" and "cut_off" are logged once
// for each phase at V2XLOG_INFO and never active. The counters of the path "check" count every sight: each phase, or
// each pair of phases, of each record.
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

// Runs all checks on one record. A record without lights is examined for "duplicate", "unmapped" and "cut_off" only,
// and is not one of the two records in a row that end a verdict. Allocates nothing.
v2xspatconv_verdict_t v2xspatconv_ChecksExamine(const v2xspatconv_sighting_t& sighting);

// Returns the state of each check of each source. The functions above and below change the rows.
using v2xspatconv_checkRows_t = v2xspatconv_checkRow_t[V2XSPATCONV_CHECKS][V2XSPATCONV_SOURCES];
const v2xspatconv_checkRows_t& v2xspatconv_ChecksGetRows(void);

// Ends the checks that have not been seen for a minute. Returns the time at which the next active check can end, or
// UINT64_MAX.
uint64_t v2xspatconv_ChecksTick(uint64_t now);
