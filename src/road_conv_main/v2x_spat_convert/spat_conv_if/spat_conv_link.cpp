#include "spat_conv_link.h"

#include "v2x/v2xpub.h"

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
