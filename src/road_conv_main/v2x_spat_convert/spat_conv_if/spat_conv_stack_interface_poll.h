// SPAT that the stack application holds: requested, queued, checked, decoded and sent up to the cloud.
#pragma once

// Task routine, every 600 ms: requests the stack application's SPAT, waits up to two seconds for the reply and queues
// it. The queue holds 64 replies; a further one drops the oldest, with a warning. `arg` is not used. One thread.
void SendGetSpatDataToAPPTaskFun(void* arg);

// Task routine, every 300 ms: checks and decodes the queued replies in order of arrival and sends their SPAT up to the
// cloud. `arg` is not used. One thread, which may differ from that of the requests.
void DealSpatDataRecvTaskFun(void* arg);
