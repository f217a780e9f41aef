#include "spat_conv_link.h"

namespace {

constexpr uint64_t SENDER_LINE_INTERVAL = 60'000'000; // microseconds

// Returns true at most once a minute.
bool IsSenderLineDue(v2xspatconv_link_t& link) {
    const uint64_t now = v2xpub_GetMonotonicTime();
    const std::lock_guard<std::mutex> guard(link.lock);
    const bool isDue = now >= link.next_sender_line;
    link.next_sender_line = isDue ? now + SENDER_LINE_INTERVAL : link.next_sender_line;
    return isDue;
}

} // namespace

void v2xspatconv_LinkCountAccepted(v2xspatconv_link_t& link) {
    const uint64_t now = v2xpub_CommGetCurrentTime64();
    const std::lock_guard<std::mutex> guard(link.lock);
    link.dds_status.run_status = V2X_CONV_RUN_STATUS_AVAILABLE;
    link.lm_run_status_flag = 0;
    link.dds_status.rx_packet_count = link.dds_status.rx_packet_count + 1;
    link.dds_status.rx_last_timestamp = now;
    v2xspatconv_SetSpatConvStatus(link.dds_status);
}

void v2xspatconv_LinkCheck(v2xspatconv_link_t& link, bool isSent) {
    const uint64_t now = v2xpub_CommGetCurrentTime64();
    const std::lock_guard<std::mutex> guard(link.lock);
    link.lm_run_status_flag++;
    if (link.lm_run_status_flag > V2XSPATCONV_LINK_SILENT_CHECKS) {
        link.dds_status.run_status = V2X_CONV_RUN_STATUS_UNAVAILABLE;
    }
    if (isSent) {
        link.dds_status.tx_packet_count = link.dds_status.tx_packet_count + 1;
        link.dds_status.tx_last_timestamp = now;
    }
    v2xspatconv_SetSpatConvStatus(link.dds_status);
}

void v2xspatconv_LinkLogSender(v2xspatconv_link_t& link, v2xlog_tag_t& tag, const char* datagram,
                               v2xpub_address_t sender) {
    if (IsSenderLineDue(link)) {
        V2XLOG(tag, V2XLOG_WARN, "%s came from %s:%u", datagram, v2xpub_FormatIp(sender).text, unsigned{sender.port});
    }
}

void v2xspatconv_LinkDisplay(v2xspatconv_link_t& link, v2xlog_tag_t& tag, const char* workingText,
                             const char* abnormalText) {
    service_status_t status;
    {
        const std::lock_guard<std::mutex> guard(link.lock);
        status = link.dds_status;
    }
    V2XLOG(tag, V2XLOG_DEBUG, "%s", status.run_status == V2X_CONV_RUN_STATUS_AVAILABLE ? workingText : abnormalText);
    V2XLOG(tag, V2XLOG_DEBUG, "Send count:%d", static_cast<int32_t>(status.tx_packet_count));
    V2XLOG(tag, V2XLOG_DEBUG, "Send last time:%lld", static_cast<long long>(status.tx_last_timestamp));
    V2XLOG(tag, V2XLOG_DEBUG, "Recv count:%d", static_cast<int32_t>(status.rx_packet_count));
    V2XLOG(tag, V2XLOG_DEBUG, "Recv last time:%lld", static_cast<long long>(status.rx_last_timestamp));
}
