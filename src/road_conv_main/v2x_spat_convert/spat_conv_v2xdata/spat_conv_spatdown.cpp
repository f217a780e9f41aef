#include "spat_conv_spatdown.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "spat_conv_config.h"
#include "spat_conv_spatdown_internal.h"
#include "spat_conv_spatdown_ipc.h"
#include "spat_conv_spatdown_json.h"
#include "spat_conv_stack_interface.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xmsgset.h"

namespace {

v2x_counter g_fragments{"down", "fragments"};
// Each document counts in one of these. One that is too long counts each time that it fills the buffer, and its rest as
// no_spat.
v2x_counter g_accepted{"down", "accepted"};
v2x_counter g_tooLong{"down", "too_long"};
v2x_counter g_noSpat{"down", "no_spat"};
v2x_counter g_notConverted{"down", "not_converted"};

constexpr uint32_t DOCUMENT_MAX = 20479; // the last byte of the buffer stays 0
constexpr uint32_t FRAGMENT_MAX = 1024;  // a shorter fragment ends a document

char dds_data[DOCUMENT_MAX + 1];
uint32_t dds_len = 0;

struct Release {
    void operator()(MessageFrame_t* frame) const { ASN_STRUCT_FREE(asn_DEF_MessageFrame, frame); }
};

void ClearDocument() {
    memset(dds_data, 0, sizeof dds_data);
    dds_len = 0;
}

// Appends a fragment to the document, or drops both when they are too long together.
void Collect(const void* data, uint32_t len) {
    if (len > DOCUMENT_MAX - dds_len) {
        g_tooLong.Add();
        V2XLOG(g_downLog, V2XLOG_WARN, "Msg data is too long");
        ClearDocument();
    } else if (len > 0) {
        memcpy(dds_data + dds_len, data, len);
        dds_len += len;
    }
}

v2xspatconv_down Mode() {
    const spat_conv_config_t* config = nullptr;
    const bool loaded = v2xspatconv_GetCfgData(&config) == 0;
    return loaded && config->m_corrections.m_spat_down ? v2xspatconv_down::corrected : v2xspatconv_down::legacy;
}

// From the collected document to the stack application.
void Convert(SPAT_t& spat) {
    const v2xspatconv_down mode = Mode();
    if (v2xspatconv_SpatJsonToStruct(dds_data, &spat, mode) != 0) {
        g_noSpat.Add();
        V2XLOG(g_downLog, V2XLOG_ERROR, "v2xspatconv_SpatJsonToStruct error");
        return;
    }
    alignas(8) uint8_t record[V2XIPC_RECORD_SIZE] = {};
    auto* spat_ipc = reinterpret_cast<v2xipc_phases_t*>(record);
    if (v2xspatconv_GbSpatToIpcSpat(&spat, spat_ipc, mode) != 0) {
        g_notConverted.Add();
        V2XLOG(g_downLog, V2XLOG_ERROR, "v2xspatconv_GbSpatToIpcSpat error");
        return;
    }
    g_accepted.Add();
    v2xspatconv_SpatNotify(spat_ipc);
}

} // namespace

void v2xspatconv_ddsRecvSpatDown(void* data, unsigned int len) {
    const int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    if (data == nullptr && len > 0) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "input param error");
        return;
    }
    g_fragments.Add();
    Collect(data, len);
    if (len >= FRAGMENT_MAX) {
        return;
    }
    V2XLOG(g_downLog, V2XLOG_TRACE, "recv_total:%d", static_cast<int>(dds_len));
    const std::unique_ptr<MessageFrame_t, Release> msgFrame(
        static_cast<MessageFrame_t*>(std::calloc(1, sizeof(MessageFrame_t))));
    if (msgFrame == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "msgFrame calloc error");
        return;
    }
    msgFrame->present = MessageFrame_PR_spatFrame;
    Convert(msgFrame->choice.spatFrame);
    ClearDocument();
}
