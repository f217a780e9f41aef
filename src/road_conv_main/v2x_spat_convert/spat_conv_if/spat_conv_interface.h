// Creation of periodic tasks, and two service-status records: the daemon's own and the cloud's.
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

// Creates a periodic real-time task (round robin, priority 50). It runs `func` every `intervals` microseconds until the
// process ends. The name is truncated to 31 characters; `handle` may be null. Returns 0; -2 for a null name or routine;
// -6 when the task service fails. Any thread.
int32_t v2xspatconv_TaskCreat(const char* taskname, uint32_t intervals, v2xpub_taskFun func, V2X_TASKHANDLE* handle);

// The status records. Any thread.
void v2xspatconv_SetSpatConvStatus(const service_status_t& st);
// Sets service_type to 2 and run_status; leaves the other fields unchanged.
void v2xspatconv_GetSpatConvStatus(service_status_t& st);
// The daemon's record with its counters and times, as it is published.
service_status_t v2xspatconv_CopySpatConvStatus(void);
void v2xspatconv_SetCloudStatus(uint8_t run_st);
// Sets service_type to 5 and run_status; leaves the other fields unchanged. run_status 0: no report from the cloud yet.
void v2xspatconv_GetCloudStatus(service_status_t& st);
