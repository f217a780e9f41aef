// Extracts frames from the controller's byte stream (GA/T 1743): byte ring, delimiter 0xC0, escapes, CRC. Private to
// the controller's adapter.
#pragma once

#include <cstdint>

#include "v2x/v2xpub.h"

// Empties the byte ring. Main thread, before the socket opens.
void initBuffer(void);

// Receive callback of the controller's socket (v2xpub_msgFunc): appends the bytes to the ring. If the ring is full,
// counts, logs and drops the remaining bytes.
void v2xspatconv_GetSignalMachine1743DataRcv(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);

// Task function, every 500 ms: processes all frames in the ring. DealSignalMachineDataTable converts each frame with a
// correct CRC. Ignores `arg`.
void DealSignalMachine1743DataRcv(void* arg);
