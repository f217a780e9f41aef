// The daemon's side of the stack application: its sockets, and the hand-over of every reading as an IPC SPAT record.
#pragma once

#include <cstdint>

#include "v2x/v2xipc_data.h"
#include "v2x/v2xpub.h"

// Opens the three sockets "SPAT_SEND_APP", "GET_SPAT_DATA" and "SPAT_C_LOGTOOL" from the port table. Returns 0; -3 when
// one cannot be opened (later ones stay closed; sending through a closed one does nothing). Main thread, once.
int32_t v2xspatconv_StackInterfaceInit(void);

// Hands one reading to the stack application: frames the record and sends it, without waiting. The record is in a
// buffer of V2XIPC_RECORD_SIZE bytes; the caller keeps it and may reuse it at once. The daemon does not learn whether
// the datagram arrives. Any thread; allocates nothing, needs about 6 KiB of stack.
// Returns 0; -2 for null; -3 when the record claims more entries than its buffer holds (logged, not sent).
int32_t v2xspatconv_SpatNotify(const v2xipc_phases_t* spat_ipc);

// Sends a request for data to the stack application and waits up to two seconds for the reply, whose buffer and size
// come in `reply`. Results as v2xipc_SocketReqSend. One thread.
int32_t v2xspatconv_AskStack(const v2xpub_UdpSocketDataHead_t& request, v2xpub_UdpSocketDataHead_t& reply);

// The IPC frame header of a request with `packLen` payload bytes, the time of sending left 0.
v2xipc_dataHead_t v2xspatconv_RequestHead(uint16_t packLen);
