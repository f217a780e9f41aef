// Declarations that the files of SPAT down share.
#pragma once

#include "v2x/v2xlog.h"

inline v2xlog_tag_t g_downLog{"DOWN"};

// Selects the data of a document that reach the stack application.
enum class v2xspatconv_downMode {
    // Intersection id, phase ids and counts. Status and timing are read and dropped. In the record each phase head
    // directly follows the previous head and overwrites the start of the previous phase's first state.
    legacy,
    // The data of `legacy`, status, lights and timing. In the record each phase head follows the states of the previous
    // phase.
    corrected,
};

// How a document is read.
struct v2xspatconv_downRules_t {
    v2xspatconv_downMode mode;
    bool isQuiet = false; // true: lines about missing optional members have V2XLOG_TRACE
};
