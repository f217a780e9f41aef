// The check that the PER and XER fuzz targets apply to a decoded frame.
#pragma once

#include "v2xapp_upercodec.h"

// Encodes the frame at *hdl in PER, basic XER and canonical XER, then frees the frame. Aborts the process if the frame
// meets its constraints and a round trip through one of the three encodings fails or changes the frame.
void checkFrame(ASNSTRUCT_HANDLE* hdl);
