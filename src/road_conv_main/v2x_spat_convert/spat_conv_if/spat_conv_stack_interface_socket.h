// The stack interface's sockets, for its own files.
#pragma once

#include "v2x/v2xpub.h"

// Sends a request to the stack application and waits up to two seconds for the reply, whose buffer and size come in
// `reply`. Results as v2xipc_SocketReqSend.
int32_t v2xspatconv_AskStack(const v2xpub_UdpSocketDataHead_t& request, v2xpub_UdpSocketDataHead_t& reply);

// Answers a log tool's request from within the callback. Results as v2xipc_SocketRespSend.
int32_t v2xspatconv_AnswerLogTool(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t& answer, const void* addr,
                                  int16_t addrLen);
