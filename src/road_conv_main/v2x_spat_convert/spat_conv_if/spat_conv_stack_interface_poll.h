// SPAT that the stack application holds: requested, queued, checked, decoded and sent up to the cloud.
#pragma once

#include <cstdint>

#include "v2x/v2xpub.h"

// Task routine, every 600 ms: requests the stack application's SPAT, waits up to two seconds for the reply and queues
// it. The queue holds 64 replies; a further one drops the oldest, with a warning. `arg` is not used. One thread.
void SendGetSpatDataToAPPTaskFun(void* arg);

// Task routine, every 300 ms: checks and decodes the queued replies in order of arrival and sends their SPAT up to the
// cloud. `arg` is not used. One thread, which may differ from that of the requests.
void DealSpatDataRecvTaskFun(void* arg);

// Checks one reply datagram (m_curMsgLen >= 0 bytes at mp_data) and decodes its items. Returns 0, also when an item
// fails or the data are of another type; -3 for a wrong head flag; -4 for a wrong length; -5 for a wrong command.
int32_t v2xspatconv_GetRsuDataResp(const v2xpub_UdpSocketDataHead_t* mp_data);
