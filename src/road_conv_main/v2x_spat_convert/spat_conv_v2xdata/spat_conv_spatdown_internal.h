// What the files of SPAT down share.
#pragma once

#include "v2x/v2xlog.h"

inline v2xlog_tag_t g_downLog{"DOWN"};

// How much of a document reaches the stack application.
enum class v2xspatconv_down {
    // What it has always been: identity, phase ids and counts. Status and timing are read and let go, and in the record
    // each phase's head lies directly behind the one before it, where that one's first state would be.
    settled,
    // Status, lights and timing as well, the entries one behind another as a reader of the record walks them.
    corrected,
};
