// The DDS channel between the daemon and the cloud's communication software, on the loop-back interface only.
//
// The daemon publishes its service status and the SPAT of the stack application (".../spat/up"). The daemon subscribes
// to the communication software's service status and the cloud's SPAT (".../spat/down"). Failures are logged under the
// tag "SDDS".
#pragma once

#include <atomic>
#include <cstdint>

#include "v2x/v2xdds.h"

// State of the channel. Other converters of the road-side unit have the same record; this daemon sets only the four
// topics that have a comment. A topic is a NUL-terminated text on the heap, or null until the channel is opened.
struct v2xcloud_comm_ddsinfo {
    int32_t m_domain_id;
    void* dds_object;                  // the DDS participant
    std::atomic<bool> cloud_available; // true: the cloud's latest status is "available"; written by the main loop
    char* mp_map_conv_send_topic;
    char* mp_rsu_cloud_send_topic;
    char* mp_spat_conv_send_topic; // the daemon publishes its service_status_t on this topic
    char* mp_rsm_conv_send_topic;
    char* mp_commsoft_recv_topic; // the communication software publishes its service_status_t on this topic
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

// Opens the channel of the road-side unit with the identity rsu_esn: creates the participant on domain 200, declares
// the four topics, and starts the participant. The DDS library logs its failures; the daemon then runs without the
// cloud. Topic names are truncated to 127 characters. Returns 0; -2 for a null identity. Main thread, once, before the
// tasks that send.
int32_t v2xcloud_ddsInit(const char* rsu_esn);

// Publishes data_len bytes as one sample on a topic that has a matched reader. If data_len is a multiple of 1024, a
// second sample of one zero byte follows: receivers of 1024-byte fragments recognize the end of the document. The
// function does not wait for a reader and does not retry. After v2xcloud_ddsExit no reader is matched. Returns 0, even
// if the DDS library fails to send; -2 for a null argument or a length of 0; the number of matched readers if the
// number is not positive. Any thread.
int32_t v2xcloud_ddsSend(void* dds_handle, const char* topic, const void* data, unsigned int data_len);

// Closes the channel. After the return no callback runs and v2xcloud_ddsSend sends nothing. The topic names stay
// allocated, because a task may read the names. The call has no effect on a channel that is not open. Returns 0; -2 for
// a null argument. Main thread.
int32_t v2xcloud_ddsExit(const v2xcloud_comm_ddsinfo* ddsinfo);

// Returns the state of the channel, never null. Any thread.
v2xcloud_comm_ddsinfo* v2xspatconv_GetddsInfo();
