#include "spat_conv_phase_table.h"

#include <cstring>
#include <ctime>
#include <iterator>

#include "v2x/v2xpub.h"

namespace {

constexpr int64_t ROAD_REGULATOR_ID_MAX = 65535;
constexpr int64_t NODE_ID_MAX = 65535;
constexpr int64_t MINUTE_OF_THE_YEAR_MAX = 527040;
constexpr int64_t D_SECOND_MAX = 65535;

constexpr uint64_t MICROSECONDS = 1000000;

size_t EntryLength(const v2xipc_phase_t& entry) {
    return sizeof entry + sizeof(v2xipc_pahseState_t) * entry.m_phaseStateNum;
}

v2xipc_phase_t EntryHead(const uint8_t* entry) {
    v2xipc_phase_t head;
    memcpy(&head, entry, sizeof head);
    return head;
}

bool InRange(v2xlog_tag_t& tag, int64_t value, int64_t max) {
    if (value >= 0 && value <= max) {
        return true;
    }
    V2XLOG(tag, V2XLOG_ERROR, "asn param error");
    return false;
}

void LogCopied(v2xlog_tag_t& tag, int32_t phaseId, const uint8_t* entry) {
    v2xipc_pahseState_t state;
    memcpy(&state, entry + sizeof(v2xipc_phase_t), sizeof state);
    V2XLOG(tag, V2XLOG_DEBUG, "======Ipc phaseId%d:%d[%d]======", phaseId, state.m_endTime, state.m_lightState);
}

} // namespace

int32_t GetMoyOfTheYear(v2xlog_tag_t& tag) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(tag, ret);
    const time_t now = static_cast<time_t>(v2xpub_CommGetCurrentTime64() / MICROSECONDS);
    tm local = {};
    localtime_r(&now, &local);
    ret = (local.tm_yday * 24 + local.tm_hour) * 60 + local.tm_min;
    return ret;
}

int32_t GetSecMarkOfTheMinute(v2xlog_tag_t& tag) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(tag, ret);
    ret = static_cast<int32_t>(v2xpub_CommGetCurrentTime64() / 1000 % 60000);
    return ret;
}

int32_t v2xspatconv_FillIpcHead(v2xlog_tag_t& tag, v2xipc_phases_t* spat_ipc) {
    const spat_conv_config_t* cfg = nullptr;
    const int32_t got = v2xspatconv_GetCfgData(&cfg);
    if (got != 0) {
        V2XLOG(tag, V2XLOG_WARN, "Get spat config error:%d", got);
        return -4;
    }
    if (!InRange(tag, cfg->m_regionId, ROAD_REGULATOR_ID_MAX)) {
        return -4;
    }
    if (!InRange(tag, cfg->m_nodeId, NODE_ID_MAX)) {
        return -3;
    }
    const int32_t moy = GetMoyOfTheYear(tag);
    if (!InRange(tag, moy, MINUTE_OF_THE_YEAR_MAX)) {
        return -5;
    }
    const int32_t secMark = GetSecMarkOfTheMinute(tag);
    if (!InRange(tag, secMark, D_SECOND_MAX)) {
        return -6;
    }
    spat_ipc->m_intersectionId = static_cast<uint32_t>(cfg->m_regionId) << 16 | static_cast<uint32_t>(cfg->m_nodeId);
    spat_ipc->m_moy = static_cast<uint32_t>(moy);
    spat_ipc->m_secMark = static_cast<uint16_t>(secMark);
    return 0;
}

uint16_t v2xspatconv_WritePhase(uint8_t* entry, uint8_t phaseId, uint8_t lightState, uint16_t endTime) {
    const v2xipc_phase_t phase = {phaseId, 1};
    const v2xipc_pahseState_t state = {
        .m_stateMode = V2XIPC_STATE_MODE_COUNTING,
        .m_lightState = lightState,
        .m_startTime = 0,
        .m_endTime = endTime,
        .m_opt_maxendTime = V2XIPC_OPT_ABSENT,
        .m_opt_minendTime = V2XIPC_OPT_ABSENT,
        .m_opt_nextStartTime = V2XIPC_OPT_ABSENT,
        .m_opt_nextDuration = V2XIPC_OPT_ABSENT,
        .m_opt_timeConfidence = V2XIPC_OPT_CONFIDENCE_ABSENT,
    };
    memcpy(entry, &phase, sizeof phase);
    memcpy(entry + sizeof phase, &state, sizeof state);
    return sizeof phase + sizeof state;
}

void v2xspatconv_IndexPhases(v2xspatconv_match match, std::span<const uint8_t> lm_phase,
                             v2xspatconv_phaseIndex_t& index) {
    index = {};
    for (uint16_t i = 0; i < V2XSPATCONV_PHASE_MAX && lm_phase.size() >= sizeof(v2xipc_phase_t); i++) {
        const v2xipc_phase_t head = EntryHead(lm_phase.data());
        const size_t length = EntryLength(head);
        if (length > lm_phase.size()) {
            return;
        }
        const uint8_t*& found = index.entries[head.m_phaseId];
        if (head.m_phaseStateNum > 0 && (match == v2xspatconv_match::last || found == nullptr)) {
            found = lm_phase.data();
        }
        lm_phase = lm_phase.subspan(length);
    }
}

int32_t GetLMPhaseByPhaseId(v2xlog_tag_t& tag, const v2xspatconv_phaseIndex_t& index, uint16_t PhaseId,
                            const uint8_t** out_phase) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(tag, ret);
    if (out_phase == nullptr) {
        V2XLOG(tag, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    *out_phase = PhaseId < std::size(index.entries) ? index.entries[PhaseId] : nullptr;
    return ret;
}

void v2xspatconv_CopyPhases(v2xlog_tag_t& tag, const spat_conv_config_t& cfg, v2xspatconv_match match,
                            std::span<const uint8_t> lm_phase, v2xipc_phases_t* spat_ipc) {
    v2xspatconv_phaseIndex_t index;
    v2xspatconv_IndexPhases(match, lm_phase, index);
    uint8_t* record = reinterpret_cast<uint8_t*>(spat_ipc);
    size_t offset = sizeof *spat_ipc;
    for (uint8_t phaseId = 1; phaseId <= V2XSPATCONV_PHASE_MAX; phaseId++) {
        const uint16_t mapped = cfg.m_phase_relationship.m_phaseid[phaseId];
        const uint16_t devicePhase = mapped != 0 ? mapped : phaseId;
        const uint8_t* entry = nullptr;
        GetLMPhaseByPhaseId(tag, index, devicePhase, &entry);
        if (entry == nullptr) {
            V2XLOG(tag, V2XLOG_TRACE, "Get PhaseID error:%d %d", devicePhase, spat_ipc->m_phaseNum);
            continue;
        }
        const size_t length = EntryLength(EntryHead(entry));
        if (offset + length > V2XIPC_RECORD_SIZE) {
            V2XLOG(tag, V2XLOG_ERROR, "phase %d does not fit the SPAT record", phaseId);
            return;
        }
        memcpy(record + offset, entry, length);
        record[offset + offsetof(v2xipc_phase_t, m_phaseId)] = phaseId;
        offset += length;
        LogCopied(tag, phaseId, entry);
    }
}
