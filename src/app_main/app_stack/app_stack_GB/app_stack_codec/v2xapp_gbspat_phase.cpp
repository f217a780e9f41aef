// The SPAT builder's phases and phase states.
#include "v2x/v2xlog.h"
#include "v2x/v2xmsgset.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_gbspat_element.h"
#include "v2xapp_truncate.h"

namespace {

v2xlog_tag_t g_tag{"GBSM"};

constexpr int32_t PHASE_ID_MAX = 255;
constexpr int32_t LIGHT_MAX = 8;
constexpr double TIME_MARKS_PER_SECOND = 10;
constexpr long TIME_MARK_UNKNOWN = 36001; // also the largest one
constexpr double CONFIDENCE_STEPS = 200;  // of 0.5 %
constexpr long CONFIDENCE_MAX = 200;

constexpr int8_t MODE_COUNTING = 1;
constexpr int8_t MODE_UTC = 2;

// ---- timing: one table for each mode, which differ in names and in whose sign counts

using Seconds = double c_phaseState_t::*;

enum class When { always, absentIfNegative, unknownIfNegative };

// Where a time of an alternative of TimeChangeDetails comes from and goes to: one of the two members is set.
template <typename Timing>
struct TimeField {
    const char* name;
    Seconds seconds;
    TimeMark_t Timing::*mandatory;
    TimeMark_t* Timing::*optional;
    When when;
    Seconds sign; // what `when` looks at
};

using In = c_phaseState_t;
using Down = TimeCountingDown_t;
using Utc = UTCTiming_t;

constexpr TimeField<Down> COUNTING_FIELDS[] = {
    {"startTime", &In::startTime, &Down::startTime, nullptr, When::always, nullptr},
    {"likelyEndTime", &In::endTime, &Down::likelyEndTime, nullptr, When::always, nullptr},
    {"maxEndTime", &In::opt_maxendTime, nullptr, &Down::maxEndTime, When::absentIfNegative, &In::opt_maxendTime},
    {"minEndTime", &In::opt_minendTime, nullptr, &Down::minEndTime, When::absentIfNegative, &In::opt_minendTime},
    {"nextStartTime", &In::opt_nextStartTime, nullptr, &Down::nextStartTime, When::unknownIfNegative,
     &In::opt_nextStartTime},
    {"nextDuration", &In::opt_nextDuration, nullptr, &Down::nextDuration, When::unknownIfNegative,
     &In::opt_nextStartTime},
};

constexpr TimeField<Utc> UTC_FIELDS[] = {
    {"utcTiming.startUTCTime", &In::startTime, &Utc::startUTCTime, nullptr, When::always, nullptr},
    {"utcTiming.likelyEndUTCTime", &In::endTime, &Utc::likelyEndUTCTime, nullptr, When::always, nullptr},
    {"utcTiming.maxEndUTCTime", &In::opt_maxendTime, nullptr, &Utc::maxEndUTCTime, When::absentIfNegative,
     &In::opt_maxendTime},
    {"utcTiming.minEndUTCTime", &In::opt_minendTime, nullptr, &Utc::minEndUTCTime, When::absentIfNegative,
     &In::opt_minendTime},
    {"utcTiming.nextStartUTCTime", &In::opt_nextStartTime, nullptr, &Utc::nextStartUTCTime, When::unknownIfNegative,
     &In::opt_nextStartTime},
    {"utcTiming.nextEndUTCTime", &In::opt_nextDuration, nullptr, &Utc::nextEndUTCTime, When::unknownIfNegative,
     &In::opt_nextDuration},
};

long TimeMark(const char* name, double seconds) {
    const long mark = v2xapp_Truncate(seconds * TIME_MARKS_PER_SECOND);
    if (mark < 0 || mark > TIME_MARK_UNKNOWN) {
        V2XLOG(g_tag, V2XLOG_WARN, "%s is out of range(0..36001), curr value = %ld", name, mark);
    }
    return mark;
}

long Confidence(double value) {
    const long confidence = v2xapp_Truncate(value * CONFIDENCE_STEPS);
    if (confidence < 0 || confidence > CONFIDENCE_MAX) {
        V2XLOG(g_tag, V2XLOG_WARN, "timeConfidence is out of range(0..200), curr value = %ld", confidence);
    }
    return confidence;
}

template <typename Timing>
void SetTime(const TimeField<Timing>& field, const c_phaseState_t& state, Timing& timing) {
    const double seconds = state.*field.seconds;
    if (field.when == When::absentIfNegative && !(state.*field.sign >= 0)) {
        return;
    }
    const bool unknown = field.when == When::unknownIfNegative && state.*field.sign < 0;
    const long mark = unknown ? TIME_MARK_UNKNOWN : TimeMark(field.name, seconds);
    if (field.mandatory != nullptr) {
        timing.*field.mandatory = mark;
    } else {
        v2xapp_ElementSet(g_tag, timing.*field.optional, mark);
    }
}

void SetCounting(const c_phaseState_t& state, TimeCountingDown_t& counting) {
    for (const auto& field : COUNTING_FIELDS) {
        SetTime(field, state, counting);
    }
    if (!(state.opt_timeConfidence < 0)) {
        v2xapp_ElementSet(g_tag, counting.timeConfidence, Confidence(state.opt_timeConfidence));
    }
}

void SetUtc(const c_phaseState_t& state, UTCTiming_t& utc) {
    for (const auto& field : UTC_FIELDS) {
        SetTime(field, state, utc);
    }
    const long confidence = state.opt_timeConfidence < 0 ? 0 : Confidence(state.opt_timeConfidence);
    v2xapp_ElementSet(g_tag, utc.timeConfidence, confidence);
}

} // namespace

int32_t v2xapp_GBMsgSPATSectionPhaseInit(GBSPATISPHASE_HANDLE* p_phaseHdl) {
    return v2xapp_ElementInit<Phase_t>(g_tag, p_phaseHdl);
}

int32_t v2xapp_GBMsgSPATSectionPhaseId(GBSPATISPHASE_HANDLE phaseHdl, int32_t phaseId) {
    if (phaseHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    static_cast<Phase_t*>(phaseHdl)->id = phaseId;
    if (phaseId < 0 || phaseId > PHASE_ID_MAX) {
        V2XLOG(g_tag, V2XLOG_WARN, "phase id is out of range(0..255), curr value = %ld", static_cast<long>(phaseId));
        return -2;
    }
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionPhaseStateInit(GBSPATISPHASESTATE_HANDLE* p_stateHdl) {
    return v2xapp_ElementInit<PhaseState_t>(g_tag, p_stateHdl);
}

int32_t v2xapp_GBMsgSPATSectionPhaseStateAdd(GBSPATISPHASE_HANDLE phaseHdl, GBSPATISPHASESTATE_HANDLE stateHdl) {
    if (phaseHdl == nullptr || stateHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    asn_set_add(&static_cast<Phase_t*>(phaseHdl)->phaseStates.list, stateHdl);
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionPhaseStateLightState(GBSPATISPHASESTATE_HANDLE stateHdl, int32_t light) {
    if (stateHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    static_cast<PhaseState_t*>(stateHdl)->light = light;
    if (light < 0 || light > LIGHT_MAX) {
        V2XLOG(g_tag, V2XLOG_WARN, "light is out of range(0..8), curr value = %ld", static_cast<long>(light));
        return -2;
    }
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionPhaseStatePhaseState(GBSPATISPHASESTATE_HANDLE stateHdl, c_phaseState_t state) {
    if (stateHdl == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    if (state.stateMode != MODE_COUNTING && state.stateMode != MODE_UTC) {
        return 0;
    }
    auto* timing = v2xapp_ElementNew<TimeChangeDetails_t>();
    if (timing == nullptr) {
        V2XLOG(g_tag, V2XLOG_ERROR, "calloc err");
        return 0;
    }
    if (state.stateMode == MODE_COUNTING) {
        timing->present = TimeChangeDetails_PR_counting;
        SetCounting(state, timing->choice.counting);
    } else {
        timing->present = TimeChangeDetails_PR_utcTiming;
        SetUtc(state, timing->choice.utcTiming);
    }
    auto& member = static_cast<PhaseState_t*>(stateHdl)->timing;
    ASN_STRUCT_FREE(asn_DEF_TimeChangeDetails, member);
    member = timing;
    return 0;
}
