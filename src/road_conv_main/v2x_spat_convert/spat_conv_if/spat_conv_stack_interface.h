// The sockets to the stack application. The daemon sends IPC SPAT records and requests SPAT.
#pragma once

#include <cstdint>

#include "v2x/v2xipc_data.h"
#include "v2x/v2xpub.h"

// Opens the sockets "SPAT_SEND_APP", "GET_SPAT_DATA" and "SPAT_C_LOGTOOL" on the configured ports, in this order.
// Returns 0; -3 if a socket cannot be opened. After a failure the sockets later in this list stay closed; sending on a
// closed socket has no effect. Main thread, once.
int32_t v2xspatconv_StackInterfaceInit(void);

// Sends one record to the stack application in an IPC frame, without waiting for a reply. The record is in a buffer of
// V2XIPC_RECORD_SIZE bytes, which the caller owns. Any thread; allocates nothing and needs about 6 KiB of stack.
// Returns 0, even if the datagram is lost; -2 for a null argument; -3 if the phases of the record exceed its buffer
// (logged, not sent).
int32_t v2xspatconv_SpatNotify(const v2xipc_phases_t* spat_ipc);

// Sends a request to the stack application and waits up to two seconds for the reply. `reply` describes the caller's
// buffer and receives the length of the reply. Results as for v2xipc_SocketReqSend. One thread at a time.
int32_t v2xspatconv_AskStack(const v2xpub_UdpSocketDataHead_t& request, v2xpub_UdpSocketDataHead_t& reply);

enum class v2xspatconv_stackState : uint8_t {
    unknown, // no request has been sent yet
    answers, // the last request was answered
    silent,  // the last request was not answered
};

// Returns the result of the last call of v2xspatconv_AskStack. Any thread.
v2xspatconv_stackState v2xspatconv_GetStackState(void);

// Returns the monotonic time of the last answer to v2xspatconv_AskStack in microseconds; 0 without an answer. Any
// thread.
uint64_t v2xspatconv_GetLastAnswer(void);

// Returns the IPC frame header of a request with `packLen` payload bytes. The sending time is 0.
v2xipc_dataHead_t v2xspatconv_MakeRequestHead(uint16_t packLen);
