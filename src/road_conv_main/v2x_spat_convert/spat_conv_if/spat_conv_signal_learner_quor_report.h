// Receives the phase reports of the signal learner. Private to the learner's adapter.
#pragma once

#include <cstdint>

#include "spat_conv_link.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

inline v2xlog_tag_t g_quorLog{"QUOR"};

// State of the link to the learner. The run status is unavailable until the first report.
inline v2xspatconv_link_t g_quorLink{
    .dds_status = {.service_type = V2X_CLOUD_SERVICE_TYPE_SPAT, .run_status = V2X_CONV_RUN_STATUS_UNAVAILABLE}};

// Receive callback of the learner's socket (v2xpub_msgFunc): checks one phase report, converts the report, and sends
// the record to the stack application. Any other datagram is logged and dropped, and the state of the link stays
// unchanged.
void v2xspatconv_GetLearnMachineDataRcv(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);
