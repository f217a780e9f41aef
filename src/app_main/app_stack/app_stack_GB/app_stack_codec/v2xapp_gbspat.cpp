#include "v2xapp_gbspat.h"

#include <atomic>
#include <cstdlib>

#include "v2x/v2xmsgset.h"
#include "v2xapp_commoncodec.h"
#include "v2xapp_private.h"
#include "v2xapp_truncate.h"

namespace {

constexpr const char* TAG = "GBSM"; // of the log lines

// Number of messages that have received a count. 2^32 is a multiple of MSG_COUNTS, so msgCnt has no gap when this
// counter wraps.
std::atomic<uint32_t> g_messageCount{0};

// Limits of the message set's types. The lowest value of each type is 0.
constexpr uint32_t MSG_COUNTS = 128;        // number of values of MsgCount
constexpr int32_t MOY_INVALID = 527040;     // largest value of MinuteOfTheYear
constexpr uint64_t SECMARK_MAX = 65535;     // largest value of DSecond
constexpr uint64_t SECMARK_INVALID = 60000; // stored if a time stamp is out of range
constexpr uint64_t SECMARKS_PER_MINUTE = 60000;
constexpr int32_t NAME_MAX_SIZE = 63;       // largest size of DescriptiveName in bytes
constexpr int32_t TIME_CONFIDENCE_MAX = 39; // largest value of TimeConfidence
constexpr int8_t STATUS_BITS = 16;          // size of IntersectionStatusObject
constexpr int32_t PHASE_ID_MAX = 255;       // largest value of PhaseID
constexpr int32_t LIGHT_MAX = 8;            // largest value of LightState
constexpr long TIME_MARK_UNKNOWN = 36001;   // largest value of TimeMark
constexpr double TIME_MARKS_PER_SECOND = 10;
constexpr long CONFIDENCE_MAX = 200;     // largest value of Confidence
constexpr double CONFIDENCE_STEPS = 200; // a confidence of 1.0 is 200 steps of 0.5 %

constexpr int8_t MODE_COUNTING = 1;
constexpr int8_t MODE_UTC = 2;

// Returns the structure that the handle points to. If the handle is null or `areArgumentsValid` is false, logs "input
// err" with the name of the calling function and returns null.
template <typename T>
T* FromHandle(void* handle, bool areArgumentsValid = true, const char* function = __builtin_FUNCTION()) {
    const bool isValid = handle != nullptr && areArgumentsValid;
    return v2xapp_Check(TAG, isValid, "input err", function) ? static_cast<T*>(handle) : nullptr;
}

// Allocates a zeroed structure and stores its address in *handle. Returns 0; -1 for a null argument; -2 if memory runs
// out. The log line contains the name of the calling function.
template <typename T>
int32_t Allocate(void** handle, const char* function = __builtin_FUNCTION()) {
    if (!v2xapp_Check(TAG, handle != nullptr, "input err", function)) {
        return -1;
    }
    void* structure = std::calloc(1, sizeof(T));
    if (!v2xapp_Check(TAG, structure != nullptr, "calloc section err", function)) {
        return -2;
    }
    *handle = structure;
    return 0;
}

// ---- optional numbers, which are pointers in the message set's types

// Stores the number; allocates the member if it is absent. Returns 0; -3 if memory runs out.
int32_t SetOptional(long*& member, long value) {
    if (member == nullptr) {
        member = static_cast<long*>(std::calloc(1, sizeof *member));
    }
    if (!v2xapp_Check(TAG, member != nullptr, "calloc err")) {
        return -3;
    }
    *member = value;
    return 0;
}

// Frees the member and makes it absent.
void RemoveOptional(long*& member) {
    std::free(member);
    member = nullptr;
}

// Sets the minute of the year; null removes the member. Legacy: an invalid minute changes a present member to
// MOY_INVALID and leaves an absent member absent.
int32_t SetMoy(MinuteOfTheYear_t*& member, const int32_t* moy) {
    if (moy == nullptr) {
        RemoveOptional(member);
    } else if (*moy >= 0 && *moy <= MOY_INVALID) {
        return SetOptional(member, *moy);
    } else if (member != nullptr) {
        *member = MOY_INVALID;
    }
    return 0;
}

// Sets the time stamp; a value above SECMARK_MAX is logged and stored as SECMARK_INVALID.
int32_t SetSecmark(DSecond_t*& member, uint64_t secMark) {
    if (secMark > SECMARK_MAX) {
        V2XAPP_LOG(TAG, V2XCODEC_LOG_WARN, "DSecond is out of range(0..65535), curr value = %ld",
                   static_cast<long>(secMark));
        secMark = SECMARK_INVALID;
    }
    return SetOptional(member, static_cast<long>(secMark));
}

// Returns the millisecond of the minute.
uint64_t ToSecmark(uint64_t microseconds) {
    return microseconds / 1000 % SECMARKS_PER_MINUTE;
}

// ---- timing: one table for each mode

using SecondsMember = double c_phaseState_t::*;

// Encoding of a time when the tested input is negative: as it is, as an absent member, or as TIME_MARK_UNKNOWN.
enum class IfNegative { encode, omit, unknown };

// Maps one time value of c_phaseState_t to a member of TimeCountingDown_t or UTCTiming_t. Exactly one of `mandatory`
// and `optional` is not null.
template <typename Timing>
struct TimeField {
    const char* name; // the value's name in the log
    SecondsMember seconds;
    TimeMark_t Timing::*mandatory;
    TimeMark_t* Timing::*optional;
    IfNegative ifNegative;
    SecondsMember tested; // the input that must not be negative; null for IfNegative::encode
};

using Input = c_phaseState_t;
using Counting = TimeCountingDown_t;
using Utc = UTCTiming_t;

constexpr TimeField<Counting> COUNTING_FIELDS[] = {
    {"startTime", &Input::startTime, &Counting::startTime, nullptr, IfNegative::encode, nullptr},
    {"likelyEndTime", &Input::endTime, &Counting::likelyEndTime, nullptr, IfNegative::encode, nullptr},
    {"maxEndTime", &Input::opt_maxendTime, nullptr, &Counting::maxEndTime, IfNegative::omit, &Input::opt_maxendTime},
    {"minEndTime", &Input::opt_minendTime, nullptr, &Counting::minEndTime, IfNegative::omit, &Input::opt_minendTime},
    {"nextStartTime", &Input::opt_nextStartTime, nullptr, &Counting::nextStartTime, IfNegative::unknown,
     &Input::opt_nextStartTime},
    // legacy: depends on opt_nextStartTime
    {"nextDuration", &Input::opt_nextDuration, nullptr, &Counting::nextDuration, IfNegative::unknown,
     &Input::opt_nextStartTime},
};

constexpr TimeField<Utc> UTC_FIELDS[] = {
    {"utcTiming.startUTCTime", &Input::startTime, &Utc::startUTCTime, nullptr, IfNegative::encode, nullptr},
    {"utcTiming.likelyEndUTCTime", &Input::endTime, &Utc::likelyEndUTCTime, nullptr, IfNegative::encode, nullptr},
    {"utcTiming.maxEndUTCTime", &Input::opt_maxendTime, nullptr, &Utc::maxEndUTCTime, IfNegative::omit,
     &Input::opt_maxendTime},
    {"utcTiming.minEndUTCTime", &Input::opt_minendTime, nullptr, &Utc::minEndUTCTime, IfNegative::omit,
     &Input::opt_minendTime},
    {"utcTiming.nextStartUTCTime", &Input::opt_nextStartTime, nullptr, &Utc::nextStartUTCTime, IfNegative::unknown,
     &Input::opt_nextStartTime},
    {"utcTiming.nextEndUTCTime", &Input::opt_nextDuration, nullptr, &Utc::nextEndUTCTime, IfNegative::unknown,
     &Input::opt_nextDuration},
};

// Returns the time in tenths of a second, truncated. Logs a result outside the range of TimeMark.
long ToTimeMark(const char* name, double seconds) {
    const long mark = v2xapp_Truncate(seconds * TIME_MARKS_PER_SECOND);
    if (mark < 0 || mark > TIME_MARK_UNKNOWN) {
        V2XAPP_LOG(TAG, V2XCODEC_LOG_WARN, "%s is out of range(0..36001), curr value = %ld", name, mark);
    }
    return mark;
}

// Returns the confidence (0 to 1) in steps of 0.5 %, truncated. Logs a result outside the range of Confidence.
long ToConfidence(double value) {
    const long confidence = v2xapp_Truncate(value * CONFIDENCE_STEPS);
    if (confidence < 0 || confidence > CONFIDENCE_MAX) {
        V2XAPP_LOG(TAG, V2XCODEC_LOG_WARN, "timeConfidence is out of range(0..200), curr value = %ld", confidence);
    }
    return confidence;
}

template <typename Timing>
// Encodes one time of the phase state.
void SetTime(const TimeField<Timing>& field, const c_phaseState_t& state, Timing& timing) {
    if (field.ifNegative == IfNegative::omit && !(state.*field.tested >= 0)) {
        return;
    }
    const bool isUnknown = field.ifNegative == IfNegative::unknown && state.*field.tested < 0;
    const long mark = isUnknown ? TIME_MARK_UNKNOWN : ToTimeMark(field.name, state.*field.seconds);
    if (field.mandatory != nullptr) {
        timing.*field.mandatory = mark;
    } else {
        SetOptional(timing.*field.optional, mark);
    }
}

void SetCounting(const c_phaseState_t& state, TimeCountingDown_t& counting) {
    for (const auto& field : COUNTING_FIELDS) {
        SetTime(field, state, counting);
    }
    if (!(state.opt_timeConfidence < 0)) {
        SetOptional(counting.timeConfidence, ToConfidence(state.opt_timeConfidence));
    }
}

void SetUtc(const c_phaseState_t& state, UTCTiming_t& utc) {
    for (const auto& field : UTC_FIELDS) {
        SetTime(field, state, utc);
    }
    const long confidence = state.opt_timeConfidence < 0 ? 0 : ToConfidence(state.opt_timeConfidence);
    SetOptional(utc.timeConfidence, confidence);
}

} // namespace

// ---- message

int32_t v2xapp_GBMsgSPATInit(GBMSG_HANDLE* p_msgHdl, GBSPAT_HANDLE* p_spatHdl) {
    if (!v2xapp_Check(TAG, p_msgHdl != nullptr && p_spatHdl != nullptr, "input err")) {
        return -1;
    }
    auto* frame = static_cast<MessageFrame_t*>(std::calloc(1, sizeof(MessageFrame_t)));
    if (!v2xapp_Check(TAG, frame != nullptr, "malloc memory error!")) {
        return -1;
    }
    frame->present = MessageFrame_PR_spatFrame;
    *p_msgHdl = frame;
    *p_spatHdl = &frame->choice.spatFrame;
    return 0;
}

int32_t getSPATMsgCnt(GBSPAT_HANDLE spatHdl) {
    auto* spat = FromHandle<SPAT_t>(spatHdl);
    if (spat == nullptr) {
        return -1;
    }
    spat->msgCnt = (g_messageCount.fetch_add(1, std::memory_order_relaxed) + 1) % MSG_COUNTS;
    return 0;
}

int32_t v2xapp_GBMsgSPATMoy(GBSPAT_HANDLE spatHdl, int32_t* moy) {
    auto* spat = FromHandle<SPAT_t>(spatHdl);
    return spat == nullptr ? -1 : SetMoy(spat->moy, moy);
}

int32_t v2xapp_GBMsgSPATName(GBSPAT_HANDLE spatHdl, char* text, int32_t len) {
    auto* spat = FromHandle<SPAT_t>(spatHdl);
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
    auto* spat = FromHandle<SPAT_t>(spatHdl, now != nullptr);
    return spat == nullptr ? -1 : SetSecmark(spat->timeStamp, ToSecmark(*now));
}

int32_t v2xapp_GBMsgSPATSecmark2(GBSPAT_HANDLE spatHdl, uint64_t secMark) {
    auto* spat = FromHandle<SPAT_t>(spatHdl);
    return spat == nullptr ? -1 : SetSecmark(spat->timeStamp, secMark);
}

// ---- intersection

int32_t v2xapp_GBMsgSPATSectionInit(GBSPATIS_HANDLE* p_sectionHdl) {
    return Allocate<IntersectionState_t>(p_sectionHdl);
}

int32_t v2xapp_GBMsgSPATSectionAdd(GBSPAT_HANDLE spatHdl, GBSPATIS_HANDLE sectionHdl) {
    auto* spat = FromHandle<SPAT_t>(spatHdl, sectionHdl != nullptr);
    if (spat == nullptr) {
        return -1;
    }
    asn_set_add(&spat->intersections.list, sectionHdl);
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionId(GBSPATIS_HANDLE sectionHdl, uint32_t id) {
    auto* section = FromHandle<IntersectionState_t>(sectionHdl);
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
        V2XAPP_LOG(TAG, V2XCODEC_LOG_WARN, "intersectionId.region is out of range(0..65535), curr value = %ld", region);
        return -3;
    }
    *node.region = region;
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionStatus(GBSPATIS_HANDLE sectionHdl, int32_t status) {
    auto* section = FromHandle<IntersectionState_t>(sectionHdl);
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
    auto* section = FromHandle<IntersectionState_t>(sectionHdl);
    return section == nullptr ? -1 : SetMoy(section->moy, moy);
}

int32_t v2xapp_GBMsgSPATSectionSecmark(GBSPATIS_HANDLE sectionHdl, uint64_t* now) {
    auto* section = FromHandle<IntersectionState_t>(sectionHdl, now != nullptr);
    return section == nullptr ? -1 : SetSecmark(section->timeStamp, ToSecmark(*now));
}

int32_t v2xapp_GBMsgSPATSectionSecmark2(GBSPATIS_HANDLE sectionHdl, uint64_t secMark) {
    auto* section = FromHandle<IntersectionState_t>(sectionHdl);
    return section == nullptr ? -1 : SetSecmark(section->timeStamp, secMark);
}

int32_t v2xapp_GBMsgSPATSectionTimeCfd(GBSPATIS_HANDLE sectionHdl, int32_t* timeConfidence) {
    auto* section = FromHandle<IntersectionState_t>(sectionHdl);
    if (section == nullptr) {
        return 0; // legacy: the other functions return -1 for a null handle
    }
    if (timeConfidence == nullptr) {
        RemoveOptional(section->timeConfidence);
        return 0;
    }
    const bool isInRange = *timeConfidence >= 0 && *timeConfidence <= TIME_CONFIDENCE_MAX;
    return v2xapp_Check(TAG, isInRange, "range out 0..39") ? SetOptional(section->timeConfidence, *timeConfidence) : -2;
}

// ---- phase

int32_t v2xapp_GBMsgSPATSectionPhaseInit(GBSPATISPHASE_HANDLE* p_phaseHdl) {
    return Allocate<Phase_t>(p_phaseHdl);
}

int32_t v2xapp_GBMsgSPATSectionPhaseAdd(GBSPATIS_HANDLE sectionHdl, GBSPATISPHASE_HANDLE phaseHdl) {
    auto* section = FromHandle<IntersectionState_t>(sectionHdl, phaseHdl != nullptr);
    if (section == nullptr) {
        return -1;
    }
    asn_set_add(&section->phases.list, phaseHdl);
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionPhaseId(GBSPATISPHASE_HANDLE phaseHdl, int32_t phaseId) {
    auto* phase = FromHandle<Phase_t>(phaseHdl);
    if (phase == nullptr) {
        return -1;
    }
    phase->id = phaseId;
    if (phaseId < 0 || phaseId > PHASE_ID_MAX) {
        V2XAPP_LOG(TAG, V2XCODEC_LOG_WARN, "phase id is out of range(0..255), curr value = %ld", phase->id);
        return -2;
    }
    return 0;
}

// ---- phase state

int32_t v2xapp_GBMsgSPATSectionPhaseStateInit(GBSPATISPHASESTATE_HANDLE* p_stateHdl) {
    return Allocate<PhaseState_t>(p_stateHdl);
}

int32_t v2xapp_GBMsgSPATSectionPhaseStateAdd(GBSPATISPHASE_HANDLE phaseHdl, GBSPATISPHASESTATE_HANDLE stateHdl) {
    auto* phase = FromHandle<Phase_t>(phaseHdl, stateHdl != nullptr);
    if (phase == nullptr) {
        return -1;
    }
    asn_set_add(&phase->phaseStates.list, stateHdl);
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionPhaseStateLightState(GBSPATISPHASESTATE_HANDLE stateHdl, int32_t light) {
    auto* state = FromHandle<PhaseState_t>(stateHdl);
    if (state == nullptr) {
        return -1;
    }
    state->light = light;
    if (light < 0 || light > LIGHT_MAX) {
        V2XAPP_LOG(TAG, V2XCODEC_LOG_WARN, "light is out of range(0..8), curr value = %ld", state->light);
        return -2;
    }
    return 0;
}

int32_t v2xapp_GBMsgSPATSectionPhaseStatePhaseState(GBSPATISPHASESTATE_HANDLE stateHdl, c_phaseState_t state) {
    auto* phaseState = FromHandle<PhaseState_t>(stateHdl);
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
