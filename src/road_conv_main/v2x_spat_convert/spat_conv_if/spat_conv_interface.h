// Periodic tasks of the daemon, and the two service-status records: the daemon's own and the cloud's.
#pragma once

#include <cstddef>
#include <cstdint>

#include "v2x/v2xpub.h"

enum e_service_type : uint8_t {
    V2X_CLOUD_SERVICE_TYPE_MAP = 1,
    V2X_CLOUD_SERVICE_TYPE_SPAT = 2, // this daemon
    V2X_CLOUD_SERVICE_TYPE_RSI = 3,
    V2X_CLOUD_SERVICE_TYPE_RSM = 4,
    V2X_CLOUD_SERVICE_TYPE_CLOUD = 5,
};

enum e_run_status_value : uint8_t {
    V2X_CONV_RUN_STATUS_AVAILABLE = 1,
    V2X_CONV_RUN_STATUS_UNAVAILABLE = 2,
};

#pragma pack(push, 1)
// Status of one service; 26 bytes, little-endian on the wire as in memory.
struct service_status_t {
    uint8_t service_type = 0; // e_service_type
    uint8_t run_status = 0;   // e_run_status_value; 0 before anything is known
    uint32_t tx_packet_count = 0;
    uint64_t tx_last_timestamp = 0; // microseconds since 1970-01-01 UTC, wall clock; 0 = never
    uint32_t rx_packet_count = 0;
    uint64_t rx_last_timestamp = 0;
};
#pragma pack(pop)
static_assert(sizeof(service_status_t) == 26 && offsetof(service_status_t, run_status) == 1 &&
              offsetof(service_status_t, tx_packet_count) == 2 && offsetof(service_status_t, tx_last_timestamp) == 6 &&
              offsetof(service_status_t, rx_packet_count) == 14 && offsetof(service_status_t, rx_last_timestamp) == 18);

// Creates a periodic real-time task (round robin, priority 50) that runs `func` every `intervals` microseconds until
// the process ends. The name is cut at 31 characters; `handle` may be null. Returns 0; -2 for a null name or routine;
// -6 when the task service fails.
int32_t v2xspatconv_TaskCreat(const char* taskname, uint32_t intervals, v2xpub_taskFun func, V2X_TASKHANDLE* handle);

// Creates the daemon's own periodic tasks in the order of their table. The first failure is logged, gives the code of
// its row and leaves the later tasks uncreated. Returns 0 on success.
int32_t v2xspatconv_TaskInit(void);

// Task routine, every 5 s: publishes the daemon's status record, 26 bytes, to the communication software. `arg` is not
// used.
void SendSpatConvStatusToCommSoft(void* arg);

// The status records may be set and read by any thread. Null arguments are ignored.
void v2xspatconv_SetSpatConvStatus(const service_status_t* st);
// Sets service_type to 2 and run_status; the caller's other fields are left alone.
void v2xspatconv_GetSpatConvStatus(service_status_t* st);
void v2xspatconv_SetCloudStatus(uint8_t run_st);
// Sets service_type to 5 and run_status; run_status 0 = the cloud has not reported yet.
void v2xspatconv_GetCloudStatus(service_status_t* st);
