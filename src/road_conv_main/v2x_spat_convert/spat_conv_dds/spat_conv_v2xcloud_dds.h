// The daemon's channel to the cloud: the unit's DDS domain, joined on the loop-back interface alone.
//
// Published: the daemon's service status, and SPAT from the stack application (".../spat/up"). Subscribed: the
// communication software's service status, and the cloud's SPAT (".../spat/down"). Failures are logged under the tag
// "SDDS".
#pragma once

#include <atomic>
#include <cstdint>

#include "v2x/v2xdds.h"

// The channel's context, shared as a record with the unit's other converters. Texts are heap, NUL-terminated, null
// until the channel is opened; of the topics this daemon fills the four that have a comment.
struct v2xcloud_comm_ddsinfo {
    int32_t m_domain_id;
    void* dds_object;                  // the participant
    std::atomic<bool> cloud_available; // set by the main loop: the cloud last said that it is available
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

// Opens the channel on domain 200 for the unit with the identity rsu_esn: participant, four topics, start. What the DDS
// library fails at is in its log, and the daemon goes on without the cloud. Returns 0; -2 for a null identity.
// Main thread, once, before the tasks that send.
int32_t v2xcloud_ddsInit(const char* rsu_esn);

// Publishes data_len bytes on a topic that has a reader. Behind a length that is a multiple of 1024 follows a sample of
// one byte 0: whoever collects fragments of 1024 takes a shorter one for the end. Nothing waits for a reader and
// nothing is sent twice. Any thread, at any time, also after the channel was closed (no reader is there then). Returns
// 0; -2 for a null argument or a length of 0; the number of readers where that is not positive.
int32_t v2xcloud_ddsSend(void* dds_handle, const char* topic, const void* data, unsigned int data_len);

// Closes the channel: callbacks have ended when it returns, and sending does nothing afterwards. The topics' texts
// stay, since tasks may be about to send. Harmless when repeated and on a channel that was never opened. Returns 0; -2
// for null. Main thread.
int32_t v2xcloud_ddsExit(const v2xcloud_comm_ddsinfo* ddsinfo);

// The one context; never null.
v2xcloud_comm_ddsinfo* v2xspatconv_GetddsInfo();

// Receive callback of the communication software's status: service type 5 sets the cloud's run status
// (v2xspatconv_SetCloudStatus); other samples, and those below two bytes, are ignored.
void v2xcloud_ddsRecvCommSoft(void* data, unsigned int len);

// ---- Steps of the opening

// Makes the topic name start, identity and end as one text, cut at 127 characters, or start alone where identity or end
// is null. The text stored at mp_topic is the caller's. Returns 0; -2 for a null mp_topic or start, or without memory.
int32_t dds_TopicStrPreHandle(char** mp_topic, const char* start_topic_str, const char* rsu_esn,
                              const char* end_topic_str);

// Makes the context's four topic names, and frees those that it had. Returns 0; -2 for a null argument.
int32_t dds_TopicInit(v2xcloud_comm_ddsinfo* ddsinfo, const char* rsu_esn);

// Declares a topic, as a reader when there is a callback, and sets its history to real time. Returns 0; -2 for a null
// handle or topic; -3 when the library refuses the topic.
int32_t dds_RegAndSet(void* dds_handle, int32_t domainID, const char* topic, dds_RecvCallback callback,
                      int32_t data_type);
