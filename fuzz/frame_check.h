// Checks that every fuzz target applies to a decoded frame.
#pragma once

#include "v2xapp_upercodec.h"

// Checks the constraints of the frame at *hdl, encodes it in every syntax and releases it. If the frame meets its
// constraints, each encoding must decode, and encode again to the same PER bytes. Aborts the process otherwise.
void checkFrame(ASNSTRUCT_HANDLE* hdl);
