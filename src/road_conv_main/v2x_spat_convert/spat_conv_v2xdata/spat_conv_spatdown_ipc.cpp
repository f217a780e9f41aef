#include "spat_conv_spatdown_ipc.h"

#include <algorithm>
#include <cstring>

#include "v2xapp_commoncodec.h"
#include "v2xapp_truncate.h"

namespace {

constexpr int32_t ENTRIES_MAX = 16; // maximum number of phases in a record, and of states in a phase
static_assert(sizeof(v2xipc_phases_t) +
                  ENTRIES_MAX * (sizeof(v2xipc_phase_t) + ENTRIES_MAX * sizeof(v2xipc_pahseState_t)) <=
              V2XIPC_RECORD_SIZE);

constexpr double SECONDS_PER_TIME_MARK = 0.1;
constexpr double CONFIDENCE_PER_STEP = 0.005;
constexpr uint32_t MOY_ABSENT = 0xFFFFFFFF;
constexpr uint16_t SEC_MARK_ABSENT = 65535;

// The times of a phase state for both kinds of timing. An optional time is null if it is absent.
struct Times {
    long start = 0;
    long likelyEnd = V2XIPC_TIME_UNKNOWN;
    const long* maxEnd = nullptr;
    const long* minEnd = nullptr;
    const long* nextStart = nullptr;
    const long* nextDurationOrEnd = nullptr; // counting: next duration; UTC timing: next end
    const long* confidence = nullptr;
};

// Multiplies the value by `factor`, truncates the product and clamps it to 32 bits. Returns the low bits that fit
// Field, or all ones for a null value.
template <typename Field>
Field Scale(const long* value, double factor) {
    if (value == nullptr) {
        return Field{-1};
    }
    const long whole = v2xapp_Truncate(static_cast<double>(*value) * factor);
    return static_cast<Field>(std::clamp<long>(whole, INT32_MIN, INT32_MAX));
}

v2xipc_pahseState_t MakeState(long light, const Times& times) {
    return {
        .m_stateMode = V2XIPC_STATE_MODE_COUNTING,
        .m_lightState = static_cast<uint8_t>(light),
        .m_startTime = static_cast<uint16_t>(times.start),
        .m_endTime = static_cast<uint16_t>(times.likelyEnd),
        .m_opt_maxendTime = Scale<int16_t>(times.maxEnd, SECONDS_PER_TIME_MARK),
        .m_opt_minendTime = Scale<int16_t>(times.minEnd, SECONDS_PER_TIME_MARK),
        .m_opt_nextStartTime = Scale<int16_t>(times.nextStart, SECONDS_PER_TIME_MARK),
        .m_opt_nextDuration = Scale<int16_t>(times.nextDurationOrEnd, SECONDS_PER_TIME_MARK),
        .m_opt_timeConfidence = Scale<int8_t>(times.confidence, CONFIDENCE_PER_STEP),
    };
}

// Makes a phase state without timing.
v2xipc_pahseState_t MakeStateWithoutTiming(long light) {
    v2xipc_pahseState_t state = MakeState(light, {});
    state.m_stateMode = 0;
    return state;
}

v2xipc_pahseState_t v2xspatconv_GbPhaseStateCountingToIpc(long light, const TimeCountingDown_t& from) {
    return MakeState(light, {from.startTime, from.likelyEndTime, from.maxEndTime, from.minEndTime, from.nextStartTime,
                             from.nextDuration, from.timeConfidence});
}

v2xipc_pahseState_t v2xspatconv_GbPhaseStateUtcTimingToIpc(long light, const UTCTiming_t& from) {
    return MakeState(light, {from.startUTCTime, from.likelyEndUTCTime, from.maxEndUTCTime, from.minEndUTCTime,
                             from.nextStartUTCTime, from.nextEndUTCTime, from.timeConfidence});
}

// Writes a phase state to `out`. Legacy: a state without timing leaves the bytes unchanged.
void WriteState(const PhaseState_t& gb_phSta, uint8_t* out, v2xspatconv_downMode mode) {
    v2xipc_pahseState_t state = {};
    switch (gb_phSta.timing != nullptr ? gb_phSta.timing->present : TimeChangeDetails_PR_NOTHING) {
    case TimeChangeDetails_PR_counting:
        state = v2xspatconv_GbPhaseStateCountingToIpc(gb_phSta.light, gb_phSta.timing->choice.counting);
        break;
    case TimeChangeDetails_PR_utcTiming:
        state = v2xspatconv_GbPhaseStateUtcTimingToIpc(gb_phSta.light, gb_phSta.timing->choice.utcTiming);
        break;
    default:
        if (mode == v2xspatconv_downMode::legacy) {
            return;
        }
        state = MakeStateWithoutTiming(gb_phSta.light);
        break;
    }
    memcpy(out, &state, sizeof state);
}

// Returns the count that the record contains for a list: the count of the list (legacy), or the number of written
// entries (corrected).
int32_t RecordCount(int32_t count, v2xspatconv_downMode mode) {
    return mode == v2xspatconv_downMode::corrected ? std::min(count, ENTRIES_MAX) : count;
}

// Writes a phase with its states to `out`. Returns the position of the next phase.
uint8_t* WritePhase(const Phase_t& phase, uint8_t* out, v2xspatconv_downMode mode) {
    const v2xipc_phase_t head = {static_cast<uint8_t>(phase.id),
                                 static_cast<uint8_t>(RecordCount(phase.phaseStates.list.count, mode))};
    memcpy(out, &head, sizeof head);
    out += sizeof head;
    uint8_t* state = out;
    for (int32_t j = 0; j < head.m_phaseStateNum && j < ENTRIES_MAX; j++) {
        WriteState(*phase.phaseStates.list.array[j], state, mode);
        state += sizeof(v2xipc_pahseState_t);
    }
    return mode == v2xspatconv_downMode::corrected ? state : out;
}

// Returns the intersection id of the record: region in the upper 16 bits, node id in the lower 16 bits.
uint32_t MakeIntersectionId(const NodeReferenceID_t& reference) {
    const uint64_t region = reference.region != nullptr ? static_cast<uint64_t>(*reference.region) : 0;
    return static_cast<uint32_t>(region << 16 | static_cast<uint64_t>(reference.id));
}

} // namespace

int32_t v2xspatconv_GbSpatToIpcSpat(const SPAT_t* gb_spat, v2xipc_phases_t* ipc_spat, v2xspatconv_downMode mode) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_downLog, ret);
    if (gb_spat == nullptr || ipc_spat == nullptr || gb_spat->intersections.list.count < 1) {
        V2XLOG(g_downLog, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    const IntersectionState_t& intersection = *gb_spat->intersections.list.array[0];
    int64_t status = 0;
    // v2xcodec_bitString2Long does not change the string, so the cast is safe.
    v2xcodec_bitString2Long(const_cast<IntersectionStatusObject_t*>(&intersection.status), &status);
    const v2xipc_phases_t head = {
        .m_intersectionId = MakeIntersectionId(intersection.intersectionId),
        .m_status = static_cast<uint16_t>(status),
        .m_moy = intersection.moy != nullptr ? static_cast<uint32_t>(*intersection.moy) : MOY_ABSENT,
        .m_secMark =
            intersection.timeStamp != nullptr ? static_cast<uint16_t>(*intersection.timeStamp) : SEC_MARK_ABSENT,
        .m_phaseNum = static_cast<int8_t>(RecordCount(intersection.phases.list.count, mode)),
    };
    memcpy(ipc_spat, &head, sizeof head);
    uint8_t* out = reinterpret_cast<uint8_t*>(ipc_spat) + sizeof head;
    for (int32_t i = 0; i < head.m_phaseNum && i < ENTRIES_MAX; i++) {
        out = WritePhase(*intersection.phases.list.array[i], out, mode);
    }
    return ret;
}
