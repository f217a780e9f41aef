// The controller's byte stream (GA/T 1743), for the files of its adapter: byte ring, frames between 0xC0, escapes, CRC.
#pragma once

#include <cstdint>

#include "v2x/v2xpub.h"

// Empties the adapter's byte ring. Call before the socket opens.
void initBuffer(void);

// Receive callback of the controller's socket (v2xpub_msgFunc): appends the bytes to the ring. Bytes without
// room are dropped; each is logged.
void v2xspatconv_GetSignalMachine1743DataRcv(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);

// Task routine, every 500 ms: processes all frames in the ring. Each frame with a correct CRC goes to the light-status
// conversion. `arg` is not used.
void DealSignalMachine1743DataRcv(void* arg);
