#include "spat_conv_gate_lights.h"

#include <algorithm>
#include <cstring>

namespace {

constexpr v2xipc_pahseState_t NO_INFORMATION = {
    .m_stateMode = V2XIPC_STATE_MODE_COUNTING,
    .m_lightState = V2XIPC_LIGHT_UNAVAILABLE,
    .m_startTime = 0,
    .m_endTime = V2XIPC_TIME_UNKNOWN,
    .m_opt_maxendTime = V2XIPC_OPT_ABSENT,
    .m_opt_minendTime = V2XIPC_OPT_ABSENT,
    .m_opt_nextStartTime = V2XIPC_OPT_ABSENT,
    .m_opt_nextDuration = V2XIPC_OPT_ABSENT,
    .m_opt_timeConfidence = V2XIPC_OPT_CONFIDENCE_ABSENT,
};

// Calls visit(head, states) for each entry within m_phaseNum that fits the record. `states` are the bytes of the
// states.
template <typename Visit>
void ForEachEntry(v2xspatconv_recordBytes record, Visit visit) {
    v2xipc_phases_t fixed;
    memcpy(&fixed, record.data(), sizeof fixed);
    std::span<const uint8_t> rest = record.subspan(sizeof fixed);
    for (int32_t i = 0; i < fixed.m_phaseNum; i++) {
        v2xipc_phase_t head;
        if (rest.size() < sizeof head) {
            return;
        }
        memcpy(&head, rest.data(), sizeof head);
        const size_t length = sizeof(v2xipc_pahseState_t) * head.m_phaseStateNum;
        if (rest.size() < sizeof head + length) {
            return;
        }
        visit(head, rest.subspan(sizeof head, length));
        rest = rest.subspan(sizeof head + length);
    }
}

v2xipc_pahseState_t ReadState(std::span<const uint8_t> states, size_t index) {
    v2xipc_pahseState_t state;
    memcpy(&state, states.data() + index * sizeof state, sizeof state);
    return state;
}

v2xipc_pahseState_t ReadCurrentState(const v2xipc_phase_t& head, std::span<const uint8_t> states) {
    for (size_t i = 0; i < head.m_phaseStateNum; i++) {
        const v2xipc_pahseState_t state = ReadState(states, i);
        if (state.m_startTime == 0) {
            return state;
        }
    }
    return ReadState(states, 0);
}

} // namespace

void v2xspatconv_ReadLights(v2xspatconv_recordBytes record, v2xspatconv_lights_t& lights) {
    lights.count = 0;
    ForEachEntry(record, [&lights](const v2xipc_phase_t& head, std::span<const uint8_t> states) {
        if (head.m_phaseStateNum > 0) {
            const v2xipc_pahseState_t state = ReadCurrentState(head, states);
            const uint16_t timeLeft = state.m_startTime == 0 ? state.m_endTime : uint16_t{V2XIPC_TIME_UNKNOWN};
            lights.rows[lights.count++] = {head.m_phaseId, state.m_lightState, timeLeft};
        }
    });
}

void v2xspatconv_ReplaceLights(v2xspatconv_recordBytes record, uint64_t phases,
                               std::span<uint8_t, V2XIPC_RECORD_SIZE> out) {
    std::fill(out.begin(), out.end(), uint8_t{0});
    memcpy(out.data(), record.data(), sizeof(v2xipc_phases_t));
    uint8_t* end = out.data() + sizeof(v2xipc_phases_t); // the copy never exceeds the original
    ForEachEntry(record, [&](v2xipc_phase_t head, std::span<const uint8_t> states) {
        const uint64_t bit = uint64_t{1} << (head.m_phaseId < 64 ? head.m_phaseId : 0);
        const bool isReplaced = head.m_phaseStateNum > 0 && (phases & bit) != 0;
        head.m_phaseStateNum = isReplaced ? 1 : head.m_phaseStateNum;
        memcpy(end, &head, sizeof head);
        end += sizeof head;
        const size_t length = isReplaced ? sizeof NO_INFORMATION : states.size();
        memcpy(end, isReplaced ? reinterpret_cast<const uint8_t*>(&NO_INFORMATION) : states.data(), length);
        end += length;
    });
}
