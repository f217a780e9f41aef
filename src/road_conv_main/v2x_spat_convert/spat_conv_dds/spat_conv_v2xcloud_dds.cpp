#include "spat_conv_v2xcloud_dds.h"

#include <cstddef>
#include <cstdio>
#include <cstdlib>
#include <cstring>

#include "spat_conv_interface.h"
#include "spat_conv_spatdown.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"SDDS"};

v2x_counter g_sent{"cloud", "sent"};
v2x_counter g_unmatched{"cloud", "unmatched"};
v2x_counter g_notSent{"cloud", "not_sent"};
v2x_counter g_status{"cloud_status", "accepted"};
v2x_counter g_shortStatus{"cloud_status", "too_short"};
v2x_counter g_otherStatus{"cloud_status", "other_service"};

constexpr int32_t DOMAIN_ID = 200;
constexpr int32_t DATA_TYPE_BYTES = 0;
constexpr size_t TOPIC_SIZE = 128;
constexpr unsigned int FRAGMENT_SIZE = 1024;

v2xcloud_comm_ddsinfo g_ddsinfo;

// Receive callback of the communication software's status. Ignores samples of other services and samples shorter than
// two bytes.
void v2xcloud_ddsRecvCommSoft(void* data, unsigned int len) {
    V2XLOG(g_log, V2XLOG_TRACE, "%s start recv:%d", __func__, static_cast<int>(len));
    uint8_t status[offsetof(service_status_t, run_status) + 1]; // service type and run status
    if (data == nullptr || len < sizeof status) {
        g_shortStatus.Add();
        return;
    }
    memcpy(status, data, sizeof status);
    const bool isCloud = status[0] == V2X_CLOUD_SERVICE_TYPE_CLOUD;
    (isCloud ? g_status : g_otherStatus).Add();
    if (isCloud) {
        v2xspatconv_SetCloudStatus(status[1]);
    }
}

using TopicMember = char* v2xcloud_comm_ddsinfo::*;

struct TopicRow {
    TopicMember topic;
    const char* start;
    const char* end; // the topic name is start, identity and end; if end is null, the name is start alone
};

// The channel creates the topic names in this order.
constexpr TopicRow TOPICS[] = {
    {&v2xcloud_comm_ddsinfo::mp_commsoft_recv_topic, "/pelko/cloud/v2x/service_status", nullptr},
    {&v2xcloud_comm_ddsinfo::mp_spat_conv_send_topic, "/pelko/v2x/cloud/service_status", nullptr},
    {&v2xcloud_comm_ddsinfo::mp_spat_up_topic, "rsu/", "/spat/up"},
    {&v2xcloud_comm_ddsinfo::mp_spat_down_topic, "rsu/", "/spat/down"},
};

struct RegistrationRow {
    TopicMember topic;
    dds_RecvCallback callback;
};

// The channel declares the topics in this order.
constexpr RegistrationRow REGISTRATIONS[] = {
    {&v2xcloud_comm_ddsinfo::mp_spat_conv_send_topic, nullptr},
    {&v2xcloud_comm_ddsinfo::mp_commsoft_recv_topic, v2xcloud_ddsRecvCommSoft},
    {&v2xcloud_comm_ddsinfo::mp_spat_up_topic, nullptr},
    {&v2xcloud_comm_ddsinfo::mp_spat_down_topic, v2xspatconv_ddsRecvSpatDown},
};

// Stores the topic name (start, identity and end, or start alone if end is null) in *mp_topic, truncated to 127
// characters. Returns 0; -2 if memory runs out.
int32_t dds_TopicStrPreHandle(char** mp_topic, const char* start_topic_str, const char* rsu_esn,
                              const char* end_topic_str) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    const bool hasIdentity = rsu_esn != nullptr && end_topic_str != nullptr;
    char name[TOPIC_SIZE];
    snprintf(name, sizeof name, "%s%s%s", start_topic_str, hasIdentity ? rsu_esn : "",
             hasIdentity ? end_topic_str : "");
    free(*mp_topic);
    *mp_topic = strdup(name);
    if (*mp_topic == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "malloc failed!");
        ret = -2;
    }
    return ret;
}

// Creates the four topic names of the channel. Returns 0.
int32_t dds_TopicInit(v2xcloud_comm_ddsinfo* ddsinfo, const char* rsu_esn) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    for (const TopicRow& row : TOPICS) {
        dds_TopicStrPreHandle(&(ddsinfo->*row.topic), row.start, rsu_esn, row.end);
    }
    return ret;
}

// Declares a topic with the real-time history setting: for receiving if the callback is not null, otherwise for
// sending. Returns 0; -2 for a null handle or topic; -3 if the DDS library rejects the topic.
int32_t dds_RegAndSet(void* dds_handle, int32_t domainID, const char* topic, dds_RecvCallback callback,
                      int32_t data_type) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    if (dds_handle == nullptr || topic == nullptr) {
        return ret = -2;
    }
    if (!dds_reg(dds_handle, domainID, topic, callback, data_type)) {
        return ret = -3;
    }
    set_history_qos(dds_handle, topic, DDS_HISTORY_REAL_TIME, 0);
    return ret;
}

} // namespace

v2xcloud_comm_ddsinfo* v2xspatconv_GetddsInfo() {
    return &g_ddsinfo;
}

int32_t v2xcloud_ddsInit(const char* rsu_esn) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    if (rsu_esn == nullptr) {
        return ret = -2;
    }
    dds_TopicInit(&g_ddsinfo, rsu_esn);
    g_ddsinfo.m_domain_id = DOMAIN_ID;
    g_ddsinfo.dds_object = create_dds();
    for (const RegistrationRow& row : REGISTRATIONS) {
        dds_RegAndSet(g_ddsinfo.dds_object, g_ddsinfo.m_domain_id, g_ddsinfo.*row.topic, row.callback, DATA_TYPE_BYTES);
    }
    set_white_list_iface(g_ddsinfo.dds_object, "127.0.0.1");
    dds_start(g_ddsinfo.dds_object);
    return ret;
}

int32_t v2xcloud_ddsSend(void* dds_handle, const char* topic, const void* data, unsigned int data_len) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    if (dds_handle == nullptr || topic == nullptr || data == nullptr || data_len == 0) {
        g_notSent.Add();
        return ret = -2;
    }
    const int32_t matched = get_match_cnt(dds_handle, topic);
    if (matched <= 0) {
        g_unmatched.Add();
        V2XLOG(g_log, V2XLOG_WARN, "Don't match:%s", topic);
        return ret = matched;
    }
    bool isSent = dds_send(dds_handle, topic, data, data_len) == 0;
    if (data_len % FRAGMENT_SIZE == 0) {
        const uint8_t endMark = 0;
        isSent = dds_send(dds_handle, topic, &endMark, sizeof endMark) == 0 && isSent;
    }
    (isSent ? g_sent : g_notSent).Add();
    return ret;
}

int32_t v2xcloud_ddsExit(const v2xcloud_comm_ddsinfo* ddsinfo) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    if (ddsinfo == nullptr) {
        return ret = -2;
    }
    destroy_dds(ddsinfo->dds_object);
    return ret;
}
