// What holds for every frame that a decoder hands out.
#pragma once

#include "v2xapp_upercodec.h"

// Checks constraints, encodes and prints the frame at *hdl and releases it. Of a frame within its constraints, the
// encoding decodes to the same bytes again, straight and by way of XER. Ends the process where that is not so.
void checkFrame(ASNSTRUCT_HANDLE* hdl);
