// Requests the stack application's SPAT, queues and decodes the replies, and sends the SPAT to the cloud.
#pragma once

#include <cstdint>

#include "v2x/v2xpub.h"

// Task function, every 600 ms: requests the stack application's SPAT, waits up to two seconds for the reply, and queues
// the reply. If 64 replies are queued, drops the oldest reply and logs a warning. Ignores `arg`. One thread at a time.
void SendGetSpatDataToAPPTaskFun(void* arg);

// Task function, every 300 ms: checks and decodes the queued replies in order of arrival and sends their SPAT to the
// cloud. Ignores `arg`. One thread at a time, in parallel with SendGetSpatDataToAPPTaskFun.
void DealSpatDataRecvTaskFun(void* arg);

// Checks one reply datagram (m_curMsgLen >= 0 bytes at mp_data) and decodes its items. Returns 0, even if an item is
// invalid or the data have another type; -3 for a wrong head flag; -4 for a wrong length; -5 for a wrong command.
int32_t v2xspatconv_GetRsuDataResp(const v2xpub_UdpSocketDataHead_t* mp_data);
