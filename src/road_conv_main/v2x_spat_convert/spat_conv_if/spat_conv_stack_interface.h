// The daemon's side of the stack application: its sockets, and the hand-over of every reading as an IPC SPAT record.
#pragma once

#include <cstdint>

#include "spat_conv_config.h"
#include "v2x/v2xipc_data.h"

// Opens the three sockets "SPAT_SEND_APP", "GET_SPAT_DATA" and "SPAT_C_LOGTOOL" from the port table. Returns 0, or -3
// when one cannot be opened (the later ones stay closed; sending through a closed one does nothing). Main thread, once.
int32_t v2xspatconv_StackInterfaceInit(const spat_conv_config_t* spatconv_cfg);

// Hands one reading to the stack application: frames the record and sends it, waiting for nothing. The record lies in a
// buffer of V2XIPC_RECORD_SIZE bytes, stays the caller's and is free for reuse at once. Whether the datagram arrives is
// not known. Any thread; allocates nothing, needs about 6 KiB of stack.
// Returns 0; -2 for null; -3 when the record claims more entries than its buffer holds (logged, not sent).
int32_t v2xspatconv_SpatNotify(const v2xipc_phases_t* spat_ipc);

// Writes the RSU data block of a record at pData (room for 11 + V2XIPC_RECORD_SIZE bytes) and its length to plen.
// Returns 0; -2 for a null argument; -3 when the record claims more than its V2XIPC_RECORD_SIZE bytes.
int32_t spat_fill(uint8_t* pData, const v2xipc_phases_t* spat_ipc, uint16_t* plen);
