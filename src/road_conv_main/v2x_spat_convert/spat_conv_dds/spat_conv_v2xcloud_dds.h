// The daemon's channel to the cloud: the unit's DDS domain, on the loop-back interface only.
//
// Publishes the daemon's service status and SPAT from the stack application (".../spat/up"). Subscribes to the
// communication software's service status and the cloud's SPAT (".../spat/down"). Failures are logged under the tag
// "SDDS".
#pragma once

#include <atomic>
#include <cstdint>

#include "v2x/v2xdds.h"

// The channel's context. The unit's other converters use the same record; this daemon fills the four topics that have a
// comment. Texts are heap, NUL-terminated, null until the channel is opened.
struct v2xcloud_comm_ddsinfo {
    int32_t m_domain_id;
    void* dds_object;                  // the participant
    std::atomic<bool> cloud_available; // set by the main loop: the cloud's latest status is "available"
    char* mp_map_conv_send_topic;
    char* mp_rsu_cloud_send_topic;
    char* mp_spat_conv_send_topic; // the daemon's service_status_t goes out here
    char* mp_rsm_conv_send_topic;
    char* mp_commsoft_recv_topic; // the communication software's service_status_t arrives here
    char* mp_info_up_topic;
    char* mp_info_up_ack_topic;
    char* mp_config_down_topic;
    char* mp_config_down_ack_topic;
    char* mp_map_down_topic;
    char* mp_map_down_ack_topic;
    char* mp_map_up_topic;
    char* mp_map_up_ack_topic;
    char* mp_bsm_up_topic;
    char* mp_rsm_up_topic;
    char* mp_rsm_down_topic;
    char* mp_rsi_up_topic;
    char* mp_rsi_up_ack_topic;
    char* mp_rsi_down_topic;
    char* mp_rsi_down_ack_topic;
    char* mp_spat_up_topic;   // "rsu/<identity>/spat/up"
    char* mp_spat_down_topic; // "rsu/<identity>/spat/down"
    char* mp_heartbeat_up_topic;
    char* mp_base_info_up_topic;
    char* mp_status_up_topic;
    char* mp_log_config_down_topic;
    char* mp_log_config_down_ack_topic;
    char* mp_maintain_config_down_topic;
    char* mp_maintain_config_down_ack_topic;
    char* mp_query_down_topic;
    char* mp_query_up_topic;
    char* mp_map_to_rsucloud_topic;
};

// Opens the channel on domain 200 for the unit with the identity rsu_esn: participant, four topics, start. The DDS
// library logs its failures, and the daemon continues without the cloud. Topic names are truncated to 127 characters.
// Returns 0; -2 for a null identity. Main thread, once, before the tasks that send.
int32_t v2xcloud_ddsInit(const char* rsu_esn);

// Publishes data_len bytes on a topic that has a reader. When data_len is a multiple of 1024, a
// one-byte sample (0) follows: it marks the end for receivers that collect 1024-byte fragments. Does not wait for a
// reader and does not retry. Any thread, at any time; after the channel is closed no reader is matched. Returns 0; -2
// for a null argument or a length of 0; the number of matched readers when it is not positive.
int32_t v2xcloud_ddsSend(void* dds_handle, const char* topic, const void* data, unsigned int data_len);

// Closes the channel. When it returns, callbacks have ended and sending does nothing. The topics' texts are kept,
// because tasks may be about to send. Harmless when repeated and on a channel that was never opened. Returns 0; -2 for
// null. Main thread.
int32_t v2xcloud_ddsExit(const v2xcloud_comm_ddsinfo* ddsinfo);

// The one context; never null.
v2xcloud_comm_ddsinfo* v2xspatconv_GetddsInfo();
