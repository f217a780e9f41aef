#include "v2xapp_gbspat.h"

#include <atomic>
#include <cstdlib>

#include "v2x/v2xlog.h"
#include "v2x/v2xmsgset.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_private.h"
#include "v2xapp_truncate.h"

namespace {

v2xlog_tag_t g_tag{"GBSM"};

std::atomic<uint32_t> g_messages{0}; // started so far; wraps at a multiple of MSG_COUNTS

// Ranges of the message set's types; each starts at 0.
constexpr uint32_t MSG_COUNTS = 128;    // MsgCount: 0 to 127
constexpr int32_t MOY_INVALID = 527040; // MinuteOfTheYear, also its largest value
constexpr uint64_t SECMARK_MAX = 65535; // DSecond
constexpr uint64_t SECMARK_INVALID = 60000;
constexpr uint64_t SECMARKS_PER_MINUTE = 60000;
constexpr int32_t NAME_MAX_SIZE = 63;       // DescriptiveName
constexpr int32_t TIME_CONFIDENCE_MAX = 39; // TimeConfidence
constexpr int8_t STATUS_BITS = 16;          // IntersectionStatusObject
constexpr int32_t PHASE_ID_MAX = 255;       // PhaseID
constexpr int32_t LIGHT_MAX = 8;            // LightState
constexpr long TIME_MARK_UNKNOWN = 36001;   // TimeMark, also its largest value
constexpr double TIME_MARKS_PER_SECOND = 10;
constexpr long CONFIDENCE_MAX = 200;     // Confidence
constexpr double CONFIDENCE_STEPS = 200; // of 0.5 %

constexpr int8_t MODE_COUNTING = 1;
constexpr int8_t MODE_UTC = 2;

// Returns the structure behind a handle. When the handle is null or `hasArguments` is false, logs under the name of the
// calling function and returns null.
template <typename T>
T* Structure(void* handle, bool hasArguments = true, const char* function = __builtin_FUNCTION()) {
    const bool isValid = handle != nullptr && hasArguments;
    return v2xapp_Check(g_tag, isValid, "input err", function) ? static_cast<T*>(handle) : nullptr;
}

// Allocates a zeroed structure at *handle.
template <typename T>
int32_t Init(void** handle, const char* function = __builtin_FUNCTION()) {
    if (!v2xapp_Check(g_tag, handle != nullptr, "input err", function)) {
        return -1;
    }
    void* structure = std::calloc(1, sizeof(T));
    if (!v2xapp_Check(g_tag, structure != nullptr, "calloc section err", function)) {
        return -2;
    }
    *handle = structure;
    return 0;
}

// ---- optional numbers, which are pointers in the message set's types

// Stores the number. Allocates an absent member first.
int32_t Set(long*& member, long value) {
    if (member == nullptr) {
        member = static_cast<long*>(std::calloc(1, sizeof *member));
    }
    if (!v2xapp_Check(g_tag, member != nullptr, "calloc err")) {
        return -3;
    }
    *member = value;
    return 0;
}

void Remove(long*& member) {
    std::free(member);
    member = nullptr;
}

int32_t SetMoy(MinuteOfTheYear_t*& member, const int32_t* moy) {
    if (moy == nullptr) {
        Remove(member);
    } else if (*moy >= 0 && *moy <= MOY_INVALID) {
        return Set(member, *moy);
    } else if (member != nullptr) {
        *member = MOY_INVALID;
    }
    return 0;
}

int32_t SetSecmark(DSecond_t*& member, uint64_t secMark) {
    if (secMark > SECMARK_MAX) {
        V2XLOG(g_tag, V2XLOG_WARN, "DSecond is out of range(0..65535), curr value = %ld", static_cast<long>(secMark));
        secMark = SECMARK_INVALID;
    }
    return Set(member, static_cast<long>(secMark));
}

uint64_t SecmarkOf(uint64_t microseconds) {
    return microseconds / 1000 % SECMARKS_PER_MINUTE;
}

// ---- timing: one table for each mode

using Seconds = double c_phaseState_t::*;

enum class When { always, absentIfNegative, unknownIfNegative };

// How one time of c_phaseState_t becomes a member of TimeCountingDown_t or UTCTiming_t. One of `mandatory` and
// `optional` is set, the other is null.
template <typename Timing>
struct TimeField {
    const char* name;
    Seconds seconds;
    TimeMark_t Timing::*mandatory;
    TimeMark_t* Timing::*optional;
    When when;
    Seconds sign; // the input whose sign `when` tests; null for When::always
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
    if (field.when == When::absentIfNegative && !(state.*field.sign >= 0)) {
        return;
    }
    const bool unknown = field.when == When::unknownIfNegative && state.*field.sign < 0;
    const long mark = unknown ? TIME_MARK_UNKNOWN : TimeMark(field.name, state.*field.seconds);
    if (field.mandatory != nullptr) {
        timing.*field.mandatory = mark;
    } else {
        Set(timing.*field.optional, mark);
    }
}

void SetCounting(const c_phaseState_t& state, TimeCountingDown_t& counting) {
    for (const auto& field : COUNTING_FIELDS) {
        SetTime(field, state, counting);
    }
    if (!(state.opt_timeConfidence < 0)) {
        Set(counting.timeConfidence, Confidence(state.opt_timeConfidence));
    }
}

void SetUtc(const c_phaseState_t& state, UTCTiming_t& utc) {
    for (const auto& field : UTC_FIELDS) {
        SetTime(field, state, utc);
    }
    const long confidence = state.opt_timeConfidence < 0 ? 0 : Confidence(state.opt_timeConfidence);
    Set(utc.timeConfidence, confidence);
}

} // namespace

// ---- message

int32_t v2xapp_GBMsgSPATInit(GBMSG_HANDLE* p_msgHdl, GBSPAT_HANDLE* p_spatHdl) {
    if (!v2xapp_Check(g_tag, p_msgHdl != nullptr && p_spatHdl != nullptr, "input err")) {
        return -1;
    }
    auto* frame = static_cast<MessageFrame_t*>(std::calloc(1, sizeof(MessageFrame_t)));
    if (!v2xapp_Check(g_tag, frame != nullptr, "malloc memory error!")) {
        return -1;
    }
    frame->present = MessageFrame_PR_spatFrame;
    *p_msgHdl = frame;
    *p_spatHdl = &frame->choice.spatFrame;
    return 0;
}

int32_t getSPATMsgCnt(GBSPAT_HANDLE spatHdl) {
    auto* spat = Structure<SPAT_t>(spatHdl);
    if (spat == nullptr) {
        return -1;
    }
    spat->msgCnt = (g_messages.fetch_add(1, std::memory_order_relaxed) + 1) % MSG_COUNTS;
    return 0;
}

int32_t v2xapp_GBMsgSPATMoy(GBSPAT_HANDLE spatHdl, int32_t* moy) {
    auto* spat = Structure<SPAT_t>(spatHdl);
    return spat == nullptr ? -1 : SetMoy(spat->moy, moy);
}

int32_t v2xapp_GBMsgSPATName(GBSPAT_HANDLE spatHdl, char* text, int32_t len) {
    auto* spat = Structure<SPAT_t>(spatHdl);
    if (spat == nullptr) {
        return -1;
    }
    if (text != nullptr) {
        if (spat->name == nullptr) {
            spat->name = v2xapp_New<DescriptiveName_t>();
        }
        OCTET_STRING_fromBuf(spat->name, text, len);
    } else if (len < 1 || len > NAME_MAX_SIZE) {
        ASN_STRUCT_FREE(asn_DEF_DescriptiveName, spat->name);
        spat->name = nullptr;
    }
    return 0;
}

int32_t v2xapp_GBMsgSPATSecmark(GBSPAT_HANDLE spatHdl, uint64_t* now) {
    auto* spat = Structure<SPAT_t>(spatHdl, now != nullptr);
    return spat == nullptr ? -1 : SetSecmark(spat->timeStamp, SecmarkOf(*now));
}

int32_t v2xapp_GBMsgSPATSecmark2(GBSPAT_HANDLE spatHdl, uint64_t secMark) {
    auto* spat = Structure<SPAT_t>(spatHdl);
    return spat == nullptr ? -1 : SetSecmark(spat->timeStamp, secMark);
}

// ---- intersection

int32_t v2xapp_GBMsgSPATSectionInit(GBSPATIS_HANDLE* p_sectionHdl) {
    return Init<IntersectionState_t>(p_sectionHdl);
}

int32_t v2xapp_GBMsgSPATSectionAdd(GBSPAT_HANDLE spatHdl, GBSPATIS_HANDLE sectionHdl) {
    auto* spat = Structure<SPAT_t>(spatHdl, sectionHdl != nullptr);
    if (spat == nullptr) {
        return -1;
    }
    asn_set_add(&spat->intersections.list, sectionHdl);
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionId(GBSPATIS_HANDLE sectionHdl, uint32_t id) {
    auto* section = Structure<IntersectionState_t>(sectionHdl);
    if (section == nullptr) {
        return -1;
    }
    NodeReferenceID_t& node = section->intersectionId;
    const long region = id >> 16;
    node.id = id & 0xFFFF;
    if (node.region == nullptr) {
        node.region = static_cast<RoadRegulatorID_t*>(std::calloc(1, sizeof *node.region));
    }
    if (node.region == nullptr) {
        V2XLOG(g_tag, V2XLOG_WARN, "intersectionId.region is out of range(0..65535), curr value = %ld", region);
        return -3;
    }
    *node.region = region;
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionStatus(GBSPATIS_HANDLE sectionHdl, int32_t status) {
    auto* section = Structure<IntersectionState_t>(sectionHdl);
    if (section == nullptr) {
        return -1;
    }
    int64_t value = status;
    IntersectionStatusObject_t bits{};
    v2xcodec_long2BitString(&value, STATUS_BITS, &bits);
    std::free(section->status.buf);
    section->status = bits;
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionMoy(GBSPATIS_HANDLE sectionHdl, int32_t* moy) {
    auto* section = Structure<IntersectionState_t>(sectionHdl);
    return section == nullptr ? -1 : SetMoy(section->moy, moy);
}

int32_t v2xapp_GBMsgSPATSectionSecmark(GBSPATIS_HANDLE sectionHdl, uint64_t* now) {
    auto* section = Structure<IntersectionState_t>(sectionHdl, now != nullptr);
    return section == nullptr ? -1 : SetSecmark(section->timeStamp, SecmarkOf(*now));
}

int32_t v2xapp_GBMsgSPATSectionSecmark2(GBSPATIS_HANDLE sectionHdl, uint64_t secMark) {
    auto* section = Structure<IntersectionState_t>(sectionHdl);
    return section == nullptr ? -1 : SetSecmark(section->timeStamp, secMark);
}

int32_t v2xapp_GBMsgSPATSectionTimeCfd(GBSPATIS_HANDLE sectionHdl, int32_t* timeConfidence) {
    auto* section = Structure<IntersectionState_t>(sectionHdl);
    if (section == nullptr) {
        return 0; // unlike the other functions
    }
    if (timeConfidence == nullptr) {
        Remove(section->timeConfidence);
        return 0;
    }
    const bool isInRange = *timeConfidence >= 0 && *timeConfidence <= TIME_CONFIDENCE_MAX;
    return v2xapp_Check(g_tag, isInRange, "range out 0..39") ? Set(section->timeConfidence, *timeConfidence) : -2;
}

// ---- phase

int32_t v2xapp_GBMsgSPATSectionPhaseInit(GBSPATISPHASE_HANDLE* p_phaseHdl) {
    return Init<Phase_t>(p_phaseHdl);
}

int32_t v2xapp_GBMsgSPATSectionPhaseAdd(GBSPATIS_HANDLE sectionHdl, GBSPATISPHASE_HANDLE phaseHdl) {
    auto* section = Structure<IntersectionState_t>(sectionHdl, phaseHdl != nullptr);
    if (section == nullptr) {
        return -1;
    }
    asn_set_add(&section->phases.list, phaseHdl);
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionPhaseId(GBSPATISPHASE_HANDLE phaseHdl, int32_t phaseId) {
    auto* phase = Structure<Phase_t>(phaseHdl);
    if (phase == nullptr) {
        return -1;
    }
    phase->id = phaseId;
    if (phaseId < 0 || phaseId > PHASE_ID_MAX) {
        V2XLOG(g_tag, V2XLOG_WARN, "phase id is out of range(0..255), curr value = %ld", phase->id);
        return -2;
    }
    return 0;
}

// ---- phase state

int32_t v2xapp_GBMsgSPATSectionPhaseStateInit(GBSPATISPHASESTATE_HANDLE* p_stateHdl) {
    return Init<PhaseState_t>(p_stateHdl);
}

int32_t v2xapp_GBMsgSPATSectionPhaseStateAdd(GBSPATISPHASE_HANDLE phaseHdl, GBSPATISPHASESTATE_HANDLE stateHdl) {
    auto* phase = Structure<Phase_t>(phaseHdl, stateHdl != nullptr);
    if (phase == nullptr) {
        return -1;
    }
    asn_set_add(&phase->phaseStates.list, stateHdl);
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionPhaseStateLightState(GBSPATISPHASESTATE_HANDLE stateHdl, int32_t light) {
    auto* state = Structure<PhaseState_t>(stateHdl);
    if (state == nullptr) {
        return -1;
    }
    state->light = light;
    if (light < 0 || light > LIGHT_MAX) {
        V2XLOG(g_tag, V2XLOG_WARN, "light is out of range(0..8), curr value = %ld", state->light);
        return -2;
    }
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionPhaseStatePhaseState(GBSPATISPHASESTATE_HANDLE stateHdl, c_phaseState_t state) {
    auto* phaseState = Structure<PhaseState_t>(stateHdl);
    if (phaseState == nullptr) {
        return -1;
    }
    if (state.stateMode != MODE_COUNTING && state.stateMode != MODE_UTC) {
        return 0;
    }
    auto* timing = v2xapp_New<TimeChangeDetails_t>();
    if (state.stateMode == MODE_COUNTING) {
        timing->present = TimeChangeDetails_PR_counting;
        SetCounting(state, timing->choice.counting);
    } else {
        timing->present = TimeChangeDetails_PR_utcTiming;
        SetUtc(state, timing->choice.utcTiming);
    }
    ASN_STRUCT_FREE(asn_DEF_TimeChangeDetails, phaseState->timing);
    phaseState->timing = timing;
    return 0;
}
