// The learner's phase reports, for the files of its adapter.
#pragma once

#include <cstdint>

#include "spat_conv_link.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

inline v2xlog_tag_t g_quorLog{"QUOR"};

// State of the link to the learner: not working until its first report.
inline v2xspatconv_link_t g_quorLink{
    .dds_status = {.service_type = V2X_CLOUD_SERVICE_TYPE_SPAT, .run_status = V2X_CONV_RUN_STATUS_UNAVAILABLE}};

// Receive callback of the learner's socket (v2xpub_msgFunc): checks one phase report, hands it to the stack application
// and counts it. Any other datagram is logged and dropped; the link's state stays unchanged.
void v2xspatconv_GetLearnMachineDataRcv(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);
