#include "spat_conv_phase_table.h"

#include <cstring>
#include <iterator>

#include "spat_conv_time.h"
#include "v2x/v2xpub.h"

namespace {

constexpr int32_t ROAD_REGULATOR_ID_MAX = 65535;
constexpr int32_t NODE_ID_MAX = 65535;
constexpr int32_t MINUTE_OF_THE_YEAR_MAX = 527040;
constexpr int32_t D_SECOND_MAX = 65535;

// A bit for each device phase.
using PhaseSet = uint64_t[4];

void AddPhase(PhaseSet& set, uint8_t phase) {
    set[phase / 64] |= uint64_t{1} << phase % 64;
}

bool HasPhase(const PhaseSet& set, uint8_t phase) {
    return (set[phase / 64] >> phase % 64 & 1) != 0;
}

// What a device phase table reports about the device phases.
struct PhaseIndex {
    PhaseSet reported = {};      // phases with an entry, also behind the entries that are read
    PhaseSet read = {};          // phases with an entry among those that are read
    PhaseSet ambiguous = {};     // phases with two different lights
    PhaseSet copied = {};        // phases that feed a SPAT phase
    const uint8_t* entries[256]; // the entry to copy, for the phases in `read`
    uint8_t lights[256];         // light of the first entry, for the phases in `reported`
};

// Returns the length of an entry with its states in bytes.
size_t EntryLength(const v2xipc_phase_t& entry) {
    return sizeof entry + sizeof(v2xipc_pahseState_t) * entry.m_phaseStateNum;
}

v2xipc_phase_t ReadEntryHead(const uint8_t* entry) {
    v2xipc_phase_t head;
    memcpy(&head, entry, sizeof head);
    return head;
}

v2xipc_pahseState_t ReadFirstState(const uint8_t* entry) {
    v2xipc_pahseState_t state;
    memcpy(&state, entry + sizeof(v2xipc_phase_t), sizeof state);
    return state;
}

void LogCopiedPhase(v2xlog_tag_t& tag, int32_t phaseId, const uint8_t* entry) {
    const v2xipc_pahseState_t state = ReadFirstState(entry);
    V2XLOG(tag, V2XLOG_DEBUG, "======Ipc phaseId%d:%d[%d]======", phaseId, state.m_endTime, state.m_lightState);
}

// Notes the light of one entry. Adds the phase to `findings` if an earlier entry has another light.
void NoteLight(PhaseIndex& index, uint8_t phase, uint8_t light, v2xspatconv_findings_t& findings) {
    if (!HasPhase(index.reported, phase)) {
        AddPhase(index.reported, phase);
        index.lights[phase] = light;
    } else if (light != index.lights[phase] && !HasPhase(index.ambiguous, phase)) {
        AddPhase(index.ambiguous, phase);
        if (findings.duplicateCount < std::size(findings.duplicates)) {
            findings.duplicates[findings.duplicateCount++] = {phase, index.lights[phase], light};
        }
    }
}

// Fills the index with one pass over the table, so that the 32 look-ups need no search.
void IndexPhases(v2xspatconv_match match, std::span<const uint8_t> lm_phase, PhaseIndex& index,
                 v2xspatconv_findings_t& findings) {
    for (uint16_t i = 0; lm_phase.size() >= sizeof(v2xipc_phase_t); i++) {
        const v2xipc_phase_t head = ReadEntryHead(lm_phase.data());
        const size_t length = EntryLength(head);
        if (length > lm_phase.size()) {
            return;
        }
        if (head.m_phaseStateNum > 0) {
            NoteLight(index, head.m_phaseId, ReadFirstState(lm_phase.data()).m_lightState, findings);
            const bool isFirst = !HasPhase(index.read, head.m_phaseId);
            if (i < V2XSPATCONV_PHASE_MAX && (match == v2xspatconv_match::last || isFirst)) {
                AddPhase(index.read, head.m_phaseId);
                index.entries[head.m_phaseId] = lm_phase.data();
            }
        }
        lm_phase = lm_phase.subspan(length);
    }
}

// Returns the entry of a device phase; null if the table has no such entry or the phase number exceeds 255.
const uint8_t* GetLMPhaseByPhaseId(v2xlog_tag_t& tag, const PhaseIndex& index, uint16_t PhaseId) {
    const int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(tag, ret);
    return PhaseId <= UINT8_MAX && HasPhase(index.read, static_cast<uint8_t>(PhaseId)) ? index.entries[PhaseId]
                                                                                       : nullptr;
}

// Copies the entries of SPAT phases 1 to 32 to the record, and notes the copied device phases in the index and the SPAT
// phases behind the first m_phaseNum entries in `findings`.
void CopyPhases(v2xlog_tag_t& tag, std::span<const uint16_t, 256> phases, PhaseIndex& index, v2xipc_phases_t* spat_ipc,
                v2xspatconv_findings_t& findings) {
    uint8_t* record = reinterpret_cast<uint8_t*>(spat_ipc);
    size_t offset = sizeof *spat_ipc;
    int32_t copied = 0;
    for (uint8_t phaseId = 1; phaseId <= V2XSPATCONV_PHASE_MAX; phaseId++) {
        const uint16_t mapped = phases[phaseId];
        const uint16_t devicePhase = mapped != 0 ? mapped : phaseId;
        const uint8_t* entry = GetLMPhaseByPhaseId(tag, index, devicePhase);
        if (entry == nullptr) {
            V2XLOG(tag, V2XLOG_TRACE, "Get PhaseID error:%d %d", devicePhase, spat_ipc->m_phaseNum);
            continue;
        }
        const size_t length = EntryLength(ReadEntryHead(entry));
        if (offset + length > V2XIPC_RECORD_SIZE) {
            V2XLOG(tag, V2XLOG_ERROR, "phase %d does not fit the SPAT record", phaseId);
            return;
        }
        memcpy(record + offset, entry, length);
        record[offset + offsetof(v2xipc_phase_t, m_phaseId)] = phaseId;
        offset += length;
        AddPhase(index.copied, static_cast<uint8_t>(devicePhase));
        findings.cutOff |= copied < spat_ipc->m_phaseNum ? 0 : uint64_t{1} << phaseId;
        copied++;
        LogCopiedPhase(tag, phaseId, entry);
    }
}

} // namespace

const spat_conv_config_t* v2xspatconv_GetAdapterConfig(v2xlog_tag_t& tag) {
    const spat_conv_config_t* cfg = nullptr;
    const int32_t ret = v2xspatconv_GetCfgData(&cfg);
    if (ret != 0) {
        V2XLOG(tag, V2XLOG_WARN, "Get spat config error:%d", ret);
        return nullptr;
    }
    return cfg;
}

int32_t v2xspatconv_FillIpcHead(v2xlog_tag_t& tag, const spat_conv_config_t& cfg, v2xipc_phases_t* spat_ipc) {
    const uint64_t now = v2xpub_CommGetCurrentTime64();
    const int32_t moy = GetMoyOfTheYear(tag, now);
    const int32_t secMark = GetSecMarkOfTheMinute(tag, now);
    const struct {
        const char* name;
        int32_t value;
        int32_t max;
        int32_t code;
    } checks[] = {
        {"regionId", cfg.m_regionId, ROAD_REGULATOR_ID_MAX, -4},
        {"nodeId", cfg.m_nodeId, NODE_ID_MAX, -3},
        {"minute of the year", moy, MINUTE_OF_THE_YEAR_MAX, -5},
        {"millisecond of the minute", secMark, D_SECOND_MAX, -6},
    };
    for (const auto& check : checks) {
        if (check.value < 0 || check.value > check.max) {
            V2XLOG(tag, V2XLOG_ERROR, "asn param error");
            V2XLOG(tag, V2XLOG_ERROR, "%s %d is out of range (0 to %d)", check.name, check.value, check.max);
            return check.code;
        }
    }
    spat_ipc->m_intersectionId = static_cast<uint32_t>(cfg.m_regionId) << 16 | static_cast<uint32_t>(cfg.m_nodeId);
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

void DealLMPhaseToIpcData(v2xlog_tag_t& tag, std::span<const uint16_t, 256> phases, v2xspatconv_match match,
                          std::span<const uint8_t> lm_phase, v2xipc_phases_t* spat_ipc,
                          v2xspatconv_findings_t& findings) {
    const int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(tag, ret);
    PhaseIndex index;
    IndexPhases(match, lm_phase, index, findings);
    CopyPhases(tag, phases, index, spat_ipc, findings);
    for (size_t i = 0; i < std::size(findings.unmapped); i++) {
        findings.unmapped[i] |= index.reported[i] & ~index.copied[i];
    }
}
