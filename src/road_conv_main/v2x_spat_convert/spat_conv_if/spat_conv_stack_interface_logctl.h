// Log control: the log tool reads and sets the levels of the daemon's log tags.
#pragma once

#include <cstdint>

#include "v2x/v2xpub.h"

// Receive callback of the log tool's socket (v2xpub_msgFunc): reports or sets log levels and answers the sender. The
// function writes its answer to the received buffer, except for a report. Runs on the socket's thread.
void GetLogCtl(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);
