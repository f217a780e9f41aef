// Shared by the files of SPAT down.
#pragma once

#include "v2x/v2xlog.h"

inline v2xlog_tag_t g_downLog{"DOWN"};

// Which data of a document reach the stack application.
enum class v2xspatconv_down {
    // Identity, phase ids and counts. Status and timing are read and dropped. In the record each phase's head
    // directly follows the previous head, where the previous phase's first state belongs.
    legacy,
    // Status, lights and timing as well; entries follow one another as a reader of the record walks them.
    corrected,
};
