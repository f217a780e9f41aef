// Supervision of the link to one signal device, the same for every adapter: counters, times, and the rule by which a
// device counts as working. Every change is copied to the daemon's own status. Any thread.
#pragma once

#include <cstdint>
#include <mutex>

#include "spat_conv_interface.h"
#include "v2x/v2xlog.h"

// A device counts as silent when more than this many link checks have passed since its last accepted message.
inline constexpr uint32_t V2XSPATCONV_LINK_SILENT_CHECKS = 10;

struct v2xspatconv_link_t {
    service_status_t dds_status;
    uint32_t lm_run_status_flag = 0; // link checks since the last accepted message
    std::mutex lock{};
};

// The device sent an accepted message: it works.
void v2xspatconv_LinkAccepted(v2xspatconv_link_t& link);

// One periodic link check. `sent` counts a packet sent to the device as well.
void v2xspatconv_LinkChecked(v2xspatconv_link_t& link, bool sent);

// Logs the state of the link at level 5 under `tag`: `works` or `abnormal`, then counters and times.
void v2xspatconv_LinkDisplay(v2xspatconv_link_t& link, v2xlog_tag_t& tag, const char* works, const char* abnormal);
