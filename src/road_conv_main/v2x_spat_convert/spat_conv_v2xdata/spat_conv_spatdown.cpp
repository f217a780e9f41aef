#include "spat_conv_spatdown.h"

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <memory>

#include "spat_conv_config.h"
#include "spat_conv_gate.h"
#include "spat_conv_spatdown_internal.h"
#include "spat_conv_spatdown_ipc.h"
#include "spat_conv_spatdown_json.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xmsgset.h"

namespace {

v2x_counter g_fragments{"down", "fragments"};
// One of these counters counts each document. A document that is too long counts each time that it exceeds the buffer,
// and its remaining fragments count as one no_spat.
v2x_counter g_accepted{"down", "accepted"};
v2x_counter g_tooLong{"down", "too_long"};
v2x_counter g_noSpat{"down", "no_spat"};
v2x_counter g_notConverted{"down", "not_converted"};

constexpr uint32_t DOCUMENT_MAX = 20479; // largest document in bytes, without the NUL
constexpr uint32_t FRAGMENT_MAX = 1024;  // largest fragment in bytes; a shorter fragment ends the document

char dds_data[DOCUMENT_MAX + 1];
uint32_t dds_len = 0;

struct FrameDeleter {
    void operator()(MessageFrame_t* frame) const { ASN_STRUCT_FREE(asn_DEF_MessageFrame, frame); }
};

void ClearDocument() {
    memset(dds_data, 0, sizeof dds_data);
    dds_len = 0;
}

// Appends a fragment to the document. If the result exceeds the buffer, drops the fragment and the document.
void AppendFragment(const void* data, uint32_t len) {
    if (len > DOCUMENT_MAX - dds_len) {
        g_tooLong.Add();
        V2XLOG(g_downLog, V2XLOG_WARN, "Msg data is too long");
        ClearDocument();
    } else if (len > 0) {
        memcpy(dds_data + dds_len, data, len);
        dds_len += len;
    }
}

v2xspatconv_downRules_t ReadRules() {
    const spat_conv_config_t* config = nullptr;
    const corrections_t corrections = v2xspatconv_GetCfgData(&config) == 0 ? config->m_corrections : corrections_t{};
    return {corrections.m_spat_down ? v2xspatconv_downMode::corrected : v2xspatconv_downMode::legacy,
            corrections.m_quiet_log};
}

// Reads the document into `spat`, converts the SPAT to a record, and sends the record to the stack application.
void ConvertDocument(SPAT_t& spat) {
    const v2xspatconv_downRules_t rules = ReadRules();
    if (v2xspatconv_SpatJsonToStruct(dds_data, &spat, rules) != 0) {
        g_noSpat.Add();
        V2XLOG(g_downLog, V2XLOG_ERROR, "v2xspatconv_SpatJsonToStruct error");
        return;
    }
    alignas(8) uint8_t record[V2XIPC_RECORD_SIZE] = {};
    auto* spat_ipc = reinterpret_cast<v2xipc_phases_t*>(record);
    if (v2xspatconv_GbSpatToIpcSpat(&spat, spat_ipc, rules.mode) != 0) {
        g_notConverted.Add();
        V2XLOG(g_downLog, V2XLOG_ERROR, "v2xspatconv_GbSpatToIpcSpat error");
        return;
    }
    g_accepted.Add();
    v2xspatconv_GateRecord(V2XSPATCONV_CLOUD, spat_ipc, {}, {}, v2xpub_GetMonotonicTime());
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
    AppendFragment(data, len);
    if (len >= FRAGMENT_MAX) {
        return;
    }
    V2XLOG(g_downLog, V2XLOG_TRACE, "recv_total:%d", static_cast<int>(dds_len));
    const std::unique_ptr<MessageFrame_t, FrameDeleter> msgFrame(
        static_cast<MessageFrame_t*>(std::calloc(1, sizeof(MessageFrame_t))));
    if (msgFrame == nullptr) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "msgFrame calloc error");
        return;
    }
    msgFrame->present = MessageFrame_PR_spatFrame;
    ConvertDocument(msgFrame->choice.spatFrame);
    ClearDocument();
}
