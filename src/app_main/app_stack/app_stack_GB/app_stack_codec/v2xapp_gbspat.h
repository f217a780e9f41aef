// Builds a MessageFrame with a SPAT step by step: the frame, the message's elements, then intersections, phases and
// phase states. Each child is created, filled and added to its parent.
//
// Calling order: Init; message elements; for each intersection SectionInit and its elements; for each phase PhaseInit
// and PhaseId; for each state PhaseStateInit, LightState, PhaseState and PhaseStateAdd; then PhaseAdd; then SectionAdd.
// Encode the frame with v2xcodec_uperEnc and release it with v2xcodec_freeStrcut (v2xapp_upercodec.h).
//
// Ownership: allocated memory is malloc's and belongs to the structure that holds it. Setting an element again reuses
// or frees the previous value. The caller owns a child until it is added; then the parent owns it. Add a child once.
// Release a child that is never added with its type's free operation. Arguments are copied, never kept.
//
// Results: 0; -1 if a handle or required pointer is null ("input err", level 2); -3 if memory for an optional number
// runs out ("calloc err", level 2). Other results are listed with each function. Elements set before a failure stay
// set. Other failed allocations throw std::bad_alloc. Values out of range are logged at level 3. Those that are kept
// cannot be encoded.
//
// Log lines use the tag "GBSM" if the process has registered it. Every function may be called on any thread; use one
// frame and its children on one thread at a time.
#pragma once

#include <cstdint>

using GBMSG_HANDLE = void*;              // a MessageFrame_t
using GBSPAT_HANDLE = void*;             // the SPAT_t inside the frame; valid as long as the frame
using GBSPATIS_HANDLE = void*;           // an IntersectionState_t
using GBSPATISPHASE_HANDLE = void*;      // a Phase_t
using GBSPATISPHASESTATE_HANDLE = void*; // a PhaseState_t

// The times of one phase state, in seconds. The builder ignores lightState and the flags: a negative value means that
// an optional element is absent.
struct c_phaseState_t {
    int8_t stateMode; // 1 = seconds from now, 2 = seconds of the UTC hour
    uint8_t lightState;
    double startTime;
    double endTime;
    bool m_opt_maxendTime_isVaild;
    bool m_opt_minendTime_isVaild;
    bool m_opt_nextStartTime_isVaild;
    bool m_opt_nextDuration_isVaild;
    bool m_opt_timeConfidence_isVaild;
    double opt_maxendTime;
    double opt_minendTime;
    double opt_nextStartTime;
    double opt_nextDuration;   // in mode 2: the next end time
    double opt_timeConfidence; // 0 to 1
};

// ---- message

// Creates a frame with an empty SPAT; the caller owns the frame. Returns 0; -1 also if memory runs out ("malloc memory
// error!").
int32_t v2xapp_GBMsgSPATInit(GBMSG_HANDLE* p_msgHdl, GBSPAT_HANDLE* p_spatHdl);

// Sets msgCnt to the next message count: 1, 2, ... 127, 0, 1, ... All threads of the process share the count.
int32_t getSPATMsgCnt(GBSPAT_HANDLE spatHdl);

// Sets the minute of the year, 0 to 527040 (MinuteOfTheYear). Null removes it. Any other value changes a minute that is
// present to 527040 (invalid) and leaves an absent one absent.
int32_t v2xapp_GBMsgSPATMoy(GBSPAT_HANDLE spatHdl, int32_t* moy);

// Sets the name to the `len` bytes at `text`, or to the text up to its NUL if len is negative. Only 1 to 63 ASCII bytes
// can be encoded (DescriptiveName). A null text removes the name, except that it changes nothing when len is 1 to 63.
// Returns 0 or -1.
int32_t v2xapp_GBMsgSPATName(GBSPAT_HANDLE spatHdl, char* text, int32_t len);

// Sets the time stamp to the millisecond of the minute of *now, a clock in microseconds that starts at a full minute
// (for example Unix time). Returns -1 for a null clock, too.
int32_t v2xapp_GBMsgSPATSecmark(GBSPAT_HANDLE spatHdl, uint64_t* now);

// Sets the time stamp to `secMark`, 0 to 65535 (DSecond). Any other value is logged and becomes 60000.
int32_t v2xapp_GBMsgSPATSecmark2(GBSPAT_HANDLE spatHdl, uint64_t secMark);

// ---- intersection

// Creates an empty intersection, which the caller owns. Returns -2 if memory runs out ("calloc section err").
int32_t v2xapp_GBMsgSPATSectionInit(GBSPATIS_HANDLE* p_sectionHdl);

// Appends the intersection to the message, which then owns it. Also returns 0 if memory for the list runs out: then the
// list's count stays the same and the caller still owns the intersection.
int32_t v2xapp_GBMsgSPATSectionAdd(GBSPAT_HANDLE spatHdl, GBSPATIS_HANDLE sectionHdl);

// Sets the intersection id: the upper 16 bits are the region, the lower 16 bits the node id. Returns -3 if memory for
// the region runs out ("intersectionId.region is out of range(0..65535), curr value = ...", level 3); the node id is
// set.
int32_t v2xapp_GBMsgSPATSectionId(GBSPATIS_HANDLE sectionHdl, uint32_t id);

// Sets the status to the low 16 bits of `status` (IntersectionStatusObject). Bit 15 is the first bit of the bit string.
int32_t v2xapp_GBMsgSPATSectionStatus(GBSPATIS_HANDLE sectionHdl, int32_t status);

// These three work like the message's functions.
int32_t v2xapp_GBMsgSPATSectionMoy(GBSPATIS_HANDLE sectionHdl, int32_t* moy);
int32_t v2xapp_GBMsgSPATSectionSecmark(GBSPATIS_HANDLE sectionHdl, uint64_t* now);
int32_t v2xapp_GBMsgSPATSectionSecmark2(GBSPATIS_HANDLE sectionHdl, uint64_t secMark);

// Sets the time confidence, 0 to 39 (TimeConfidence). Null removes it. Returns 0, even for a null handle ("input err");
// -2 for a value out of range ("range out 0..39", level 2), which changes nothing.
int32_t v2xapp_GBMsgSPATSectionTimeCfd(GBSPATIS_HANDLE sectionHdl, int32_t* timeConfidence);

// ---- phase

// Creates an empty phase, which the caller owns. Returns -2 if memory runs out ("calloc section err").
int32_t v2xapp_GBMsgSPATSectionPhaseInit(GBSPATISPHASE_HANDLE* p_phaseHdl);

// Appends the phase to the intersection; otherwise like SectionAdd.
int32_t v2xapp_GBMsgSPATSectionPhaseAdd(GBSPATIS_HANDLE sectionHdl, GBSPATISPHASE_HANDLE phaseHdl);

// Sets the phase id, 0 to 255 (PhaseID). Stores any other value, too, but returns -2.
int32_t v2xapp_GBMsgSPATSectionPhaseId(GBSPATISPHASE_HANDLE phaseHdl, int32_t phaseId);

// ---- phase state

// Creates an empty phase state, which the caller owns. Returns -2 if memory runs out ("calloc section err").
int32_t v2xapp_GBMsgSPATSectionPhaseStateInit(GBSPATISPHASESTATE_HANDLE* p_stateHdl);

// Appends the state to the phase; otherwise like SectionAdd.
int32_t v2xapp_GBMsgSPATSectionPhaseStateAdd(GBSPATISPHASE_HANDLE phaseHdl, GBSPATISPHASESTATE_HANDLE stateHdl);

// Sets the light, 0 to 8 (LightState). Stores any other value, too, but returns -2.
int32_t v2xapp_GBMsgSPATSectionPhaseStateLightState(GBSPATISPHASESTATE_HANDLE stateHdl, int32_t light);

// Sets the timing that stateMode selects; modes other than 1 and 2 change nothing. Times are truncated to tenths of a
// second (TimeMark, 36001 = unknown). Times outside 0 to 36001 are logged and kept; so are NaN and values beyond a
// long.
// - Start and likely end are always present.
// - Latest and earliest end are absent when negative.
// - The next start is 36001 when negative.
// - The next duration (mode 1) is 36001 when the next START is negative; the next end (mode 2) when it is itself
// negative.
// - The confidence counts in steps of 0.5 % (Confidence). A negative one is absent in mode 1 and 0 in mode 2. One above
//   200 is logged and kept.
// Returns 0 or -1.
int32_t v2xapp_GBMsgSPATSectionPhaseStatePhaseState(GBSPATISPHASESTATE_HANDLE stateHdl, c_phaseState_t state);
