#include "spat_conv_signal_learner_quor_report.h"

#include <cstring>
#include <span>

#include "spat_conv_gate.h"
#include "spat_conv_phase_table.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xipc_data.h"

namespace {

v2x_counter g_accepted{"learner", "accepted"};
v2x_counter g_notConverted{"learner", "not_converted"};
v2x_counter g_invalid{"learner", "invalid"};
v2x_counter g_wrongLength{"learner", "wrong_length"};

constexpr uint8_t REPORT_START[3] = {0xFE, 0xFE, 0x10}; // two start bytes, then the type of a phase report
constexpr int32_t REPORT_HEAD_LENGTH = 5;               // REPORT_START and the body length (16 bits, big-endian)
constexpr size_t BODY_PHASE_NUM = 1;                    // offset of the phase count in the body
constexpr size_t BODY_HEAD_LENGTH = 3;
constexpr size_t PHASE_LENGTH = 7; // phase number, colour, remaining seconds, four ignored bytes
constexpr uint8_t SECONDS_UNKNOWN = 255;
constexpr uint16_t TENTHS_PER_SECOND = 10;

constexpr struct {
    uint8_t light_data;
    uint8_t lightState;
} COLOURS[] = {
    {1, V2XIPC_LIGHT_PERMISSIVE_GREEN},
    {2, V2XIPC_LIGHT_RED},
    {3, V2XIPC_LIGHT_YELLOW},
};

// Stores the light state of a colour in *out_data. An unknown colour leaves *out_data unchanged. Returns 0.
int32_t DealLearnMachineLightStataToIpcData(uint8_t light_data, uint8_t* out_data) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_quorLog, ret);
    for (const auto& colour : COLOURS) {
        if (colour.light_data == light_data) {
            *out_data = colour.lightState;
        }
    }
    return ret;
}

// Converts one phase record of a report to an entry at `lm_phase`. *phase_len receives the length of the entry.
void v2xspatconv_DealSinglePhase(std::span<const uint8_t, PHASE_LENGTH> data, uint16_t* phase_len, uint8_t* lm_phase) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_quorLog, ret);
    const uint8_t phaseId = data[0];
    const uint8_t seconds = data[2];
    uint8_t lightState = V2XIPC_LIGHT_UNAVAILABLE;
    uint16_t endTime = V2XIPC_TIME_UNKNOWN;
    if (seconds != SECONDS_UNKNOWN) {
        DealLearnMachineLightStataToIpcData(data[1], &lightState);
        endTime = static_cast<uint16_t>(seconds * TENTHS_PER_SECOND);
    }
    V2XLOG(g_quorLog, V2XLOG_DEBUG, "======phaseId%d:%d[%d]======", phaseId, endTime, lightState);
    *phase_len = v2xspatconv_WritePhase(lm_phase, phaseId, lightState, endTime);
}

// Converts a report to an IPC SPAT record. `data` contains the received phase records; phase_num is the number that the
// report claims. If the report is shorter, the missing phases are omitted. Adds to `findings`. Returns 0; -4 if the
// configuration cannot be loaded; otherwise the result of v2xspatconv_FillIpcHead.
int32_t v2xspatconv_LearnMachineToIpcSpat(std::span<const uint8_t> data, uint8_t phase_num, v2xipc_phases_t* spat_ipc,
                                          v2xspatconv_findings_t& findings) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_quorLog, ret);
    const spat_conv_config_t* cfg = v2xspatconv_GetAdapterConfig(g_quorLog);
    ret = cfg != nullptr ? v2xspatconv_FillIpcHead(g_quorLog, *cfg, spat_ipc) : -4;
    if (ret != 0) {
        return ret;
    }
    // Legacy: a number above 127 becomes negative, and the record is sent without phases.
    spat_ipc->m_phaseNum = static_cast<int8_t>(phase_num);
    uint8_t lm_phase[V2XSPATCONV_PHASE_TABLE_SIZE]; // large enough for 127 entries of 17 bytes
    size_t written = 0;
    for (int32_t i = 0; i < spat_ipc->m_phaseNum && data.size() >= PHASE_LENGTH; i++) {
        uint16_t phase_len = 0;
        v2xspatconv_DealSinglePhase(data.first<PHASE_LENGTH>(), &phase_len, lm_phase + written);
        data = data.subspan(PHASE_LENGTH);
        written += phase_len;
    }
    DealLMPhaseToIpcData(g_quorLog, cfg->m_guard.m_sources[V2XSPATCONV_LEARNER].m_phaseid, v2xspatconv_match::last,
                         {lm_phase, written}, spat_ipc, findings);
    return ret;
}

// Converts the body of a report and hands the record to the gate. The report counts as accepted by the
// link even if the conversion fails. Returns the result of the conversion.
int32_t DealLearnMachineData(std::span<const uint8_t> body, v2xpub_address_t sender) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_quorLog, ret);
    const uint8_t phase_num = body.size() > BODY_PHASE_NUM ? body[BODY_PHASE_NUM] : uint8_t{0};
    const std::span<const uint8_t> phases =
        body.size() > BODY_HEAD_LENGTH ? body.subspan(BODY_HEAD_LENGTH) : body.last(0);
    alignas(8) uint8_t record[V2XIPC_RECORD_SIZE] = {};
    v2xipc_phases_t* spat_ipc = reinterpret_cast<v2xipc_phases_t*>(record);
    v2xspatconv_findings_t findings;
    ret = v2xspatconv_LearnMachineToIpcSpat(phases, phase_num, spat_ipc, findings);
    if (ret != 0) {
        g_notConverted.Add();
        V2XLOG(g_quorLog, V2XLOG_WARN, "v2xspatconv_LearnMachineToIpcSpat error");
    } else {
        g_accepted.Add();
        v2xspatconv_GateRecord(V2XSPATCONV_LEARNER, spat_ipc, findings, sender, v2xpub_GetMonotonicTime());
    }
    v2xspatconv_LinkCountAccepted(g_quorLink);
    return ret;
}

// Counts and logs a datagram that is not a phase report.
void RejectReport(const v2xpub_UdpSocketDataHead_t& datagram) {
    g_invalid.Add();
    V2XLOG(g_quorLog, V2XLOG_ERROR, "Invalid LearnMachine Data");
    V2XLOG(g_quorLog, V2XLOG_VERBOSE, "len=%d Invalid LearnMachine Data:", datagram.m_curMsgLen);
    if (v2xlog_Enabled(g_quorLog, V2XLOG_VERBOSE)) {
        v2xlog_HexDump(v2xlog_Handle(g_quorLog), V2XLOG_VERBOSE, datagram.mp_data, datagram.m_curMsgLen);
    }
}

// Returns the length of the report's body in bytes; -1 if the datagram is not a phase report or has another length than
// it states. Counts and logs such a datagram.
int32_t CheckReport(const v2xpub_UdpSocketDataHead_t& datagram) {
    const int32_t received = datagram.m_curMsgLen;
    const uint8_t* bytes = datagram.mp_data;
    if (received < REPORT_HEAD_LENGTH || memcmp(bytes, REPORT_START, sizeof REPORT_START) != 0) {
        RejectReport(datagram);
        return -1;
    }
    const int16_t bodyLength = static_cast<int16_t>(bytes[3] << 8 | bytes[4]);
    const int32_t length = bodyLength + REPORT_HEAD_LENGTH;
    if (length != received) {
        g_wrongLength.Add();
        V2XLOG(g_quorLog, V2XLOG_ERROR, "Invalid Length, [recv len:%d] , [calc len:%d]", received, length);
        return -1;
    }
    return bodyLength;
}

} // namespace

void v2xspatconv_GetLearnMachineDataRcv(V2X_UDPSOCKHANDLE /*handle*/, void* p_data, void* addr, int16_t addrLen) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_quorLog, ret);
    const v2xpub_UdpSocketDataHead_t* datagram = static_cast<const v2xpub_UdpSocketDataHead_t*>(p_data);
    const v2xpub_address_t sender = v2xpub_ReadAddress(addr, addrLen);
    const int32_t bodyLength = CheckReport(*datagram);
    if (bodyLength < 0) {
        v2xspatconv_LinkLogSender(g_quorLink, g_quorLog, "the datagram", sender);
        return;
    }
    ret = DealLearnMachineData({datagram->mp_data + REPORT_HEAD_LENGTH, static_cast<size_t>(bodyLength)}, sender);
}
