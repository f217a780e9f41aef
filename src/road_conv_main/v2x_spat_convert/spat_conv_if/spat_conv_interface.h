// Creates periodic tasks and stores two service-status records: the daemon's and the cloud's.
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
// Status of one service; 26 bytes, little-endian in memory and in the DDS sample.
struct service_status_t {
    uint8_t service_type = 0; // e_service_type
    uint8_t run_status = 0;   // e_run_status_value; 0: not yet known
    uint32_t tx_packet_count = 0;
    uint64_t tx_last_timestamp = 0; // last sent packet: microseconds since 1970-01-01 UTC; 0: no packet
    uint32_t rx_packet_count = 0;
    uint64_t rx_last_timestamp = 0; // last received packet: microseconds since 1970-01-01 UTC; 0: no packet
};
#pragma pack(pop)
static_assert(sizeof(service_status_t) == 26 && offsetof(service_status_t, run_status) == 1 &&
              offsetof(service_status_t, tx_packet_count) == 2 && offsetof(service_status_t, tx_last_timestamp) == 6 &&
              offsetof(service_status_t, rx_packet_count) == 14 && offsetof(service_status_t, rx_last_timestamp) == 18);

// Creates a periodic real-time task (round robin, priority 50), which calls `func` every `intervals` microseconds until
// the process ends. The name is truncated to 31 characters. `handle`, if not null, receives the task's handle. Returns
// 0; -2 for a null name or function; -6 if the task cannot be created. Any thread.
int32_t v2xspatconv_TaskCreat(const char* taskname, uint32_t intervals, v2xpub_taskFun func, V2X_TASKHANDLE* handle);

// ---- the status records; any thread

// Replaces the daemon's record.
void v2xspatconv_SetSpatConvStatus(const service_status_t& st);

// Copies run_status of the daemon's record to st and sets st.service_type to 2. The other fields of st stay unchanged.
void v2xspatconv_GetSpatConvStatus(service_status_t& st);

// Returns the complete record of the daemon.
service_status_t v2xspatconv_CopySpatConvStatus(void);

// Sets run_status of the cloud's record.
void v2xspatconv_SetCloudStatus(uint8_t run_st);

// Copies run_status of the cloud's record to st and sets st.service_type to 5. The other fields of st stay unchanged.
// run_status is 0 until the cloud has sent a status.
void v2xspatconv_GetCloudStatus(service_status_t& st);

// Returns the monotonic time of the last call of v2xspatconv_SetCloudStatus in microseconds; 0 without a call. Any
// thread.
uint64_t v2xspatconv_GetCloudStatusTime(void);
