// Supervises the link to one signal device: counts packets and decides whether the device is working. All adapters
// share these functions. Every change is copied to the daemon's status. Any thread.
#pragma once

#include <cstdint>
#include <mutex>

#include "spat_conv_interface.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

// A device is unavailable after more than this number of link checks without an accepted message.
inline constexpr uint32_t V2XSPATCONV_LINK_SILENT_CHECKS = 10;

struct v2xspatconv_link_t {
    service_status_t dds_status;
    uint32_t lm_run_status_flag = 0; // link checks since the last accepted message
    uint64_t next_sender_line = 0;   // monotonic time in microseconds from which v2xspatconv_LinkLogSender logs again
    std::mutex lock{};
};

// Counts one accepted message of the device and sets the run status to available.
void v2xspatconv_LinkCountAccepted(v2xspatconv_link_t& link);

// Performs one periodic link check. If `isSent` is true, counts one packet sent to the device.
void v2xspatconv_LinkCheck(v2xspatconv_link_t& link, bool isSent);

// Names the sender of an invalid datagram at V2XLOG_WARN under `tag`, at most once a minute: "DATAGRAM came from
// ADDRESS:PORT".
void v2xspatconv_LinkLogSender(v2xspatconv_link_t& link, v2xlog_tag_t& tag, const char* datagram,
                               v2xpub_address_t sender);

// Logs the state of the link at V2XLOG_DEBUG under `tag`: `workingText` or `abnormalText`, then counters and times.
void v2xspatconv_LinkDisplay(v2xspatconv_link_t& link, v2xlog_tag_t& tag, const char* workingText,
                             const char* abnormalText);
