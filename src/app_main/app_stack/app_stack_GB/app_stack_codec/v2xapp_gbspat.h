// Builds a MessageFrame with a SPAT step by step: the frame, the message's elements, then intersections, phases and
// phase states. The caller creates each child, fills it, and adds it to its parent.
//
// Calling order: Init; message elements; for each intersection SectionInit and its elements; for each phase PhaseInit
// and PhaseId; for each state PhaseStateInit, LightState, PhaseState and PhaseStateAdd; then PhaseAdd; then SectionAdd.
// Encode the frame with v2xcodec_uperEnc and free the frame with v2xcodec_freeStrcut (v2xapp_upercodec.h).
//
// Ownership: every structure owns its members, which are allocated with malloc. Setting an element again reuses or
// frees the previous value. The caller owns a child until the call that adds it; afterwards the parent owns the child.
// Add a child only once. Free a child that is never added with ASN_STRUCT_FREE of its type. A child may also be added
// first and filled afterwards: its handle stays valid. The functions copy all other arguments.
//
// Results: 0 on success; -1 if a handle or a required pointer is null (error "input err"); -3 if memory for an optional
// number runs out (error "calloc err"). The comment of each function lists its other results. A failed call does not
// undo earlier changes. Other failed allocations end the process with abort(). Out-of-range values are logged as
// warnings; the encoder rejects those that are stored unchanged.
//
// The functions log under the tag "GBSM" (v2xapp_log.h). Every function may run on any thread; do not use the same
// frame or its children on two threads at once.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

typedef void* GBMSG_HANDLE;              // a MessageFrame_t
typedef void* GBSPAT_HANDLE;             // the SPAT_t of a frame; valid until the frame is freed
typedef void* GBSPATIS_HANDLE;           // an IntersectionState_t
typedef void* GBSPATISPHASE_HANDLE;      // a Phase_t
typedef void* GBSPATISPHASESTATE_HANDLE; // a PhaseState_t

// The times of one phase state, in seconds. The builder ignores lightState and the flags. A negative optional value
// means absent or unknown; see v2xapp_GBMsgSPATSectionPhaseStatePhaseState.
typedef struct c_phaseState_t {
    int8_t stateMode; // 1: times are seconds from now; 2: times are seconds of the UTC hour
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
    double opt_nextDuration;   // mode 1: duration; mode 2: next end time
    double opt_timeConfidence; // 0 to 1
} c_phaseState_t;

// ---- message

// Creates a frame with an empty SPAT; the caller owns the frame. Also returns -1 if memory runs out (error "malloc
// memory error!").
int32_t v2xapp_GBMsgSPATInit(GBMSG_HANDLE* p_msgHdl, GBSPAT_HANDLE* p_spatHdl);

// Sets msgCnt to the next message count: 1, 2, ... 127, 0, 1, ... All threads of the process share the count.
int32_t getSPATMsgCnt(GBSPAT_HANDLE spatHdl);

// Sets the minute of the year, 0 to 527040 (MinuteOfTheYear). Null removes the element. Legacy: any other value changes
// a present element to 527040 (invalid) and leaves an absent element absent.
int32_t v2xapp_GBMsgSPATMoy(GBSPAT_HANDLE spatHdl, int32_t* moy);

// Sets the name to the `len` bytes at `text`, or to the text up to its NUL if len is negative. Only 1 to 63 ASCII bytes
// can be encoded (DescriptiveName). A null text removes the name. Legacy: a null text with a len from 1 to 63 changes
// nothing. Returns 0 or -1.
int32_t v2xapp_GBMsgSPATName(GBSPAT_HANDLE spatHdl, char* text, int32_t len);

// Sets the time stamp to the millisecond of the minute. *now is a time in microseconds since the start of any minute,
// for example Unix time.
int32_t v2xapp_GBMsgSPATSecmark(GBSPAT_HANDLE spatHdl, uint64_t* now);

// Sets the time stamp to `secMark`, 0 to 65535 (DSecond). Any other value is logged and stored as 60000.
int32_t v2xapp_GBMsgSPATSecmark2(GBSPAT_HANDLE spatHdl, uint64_t secMark);

// ---- intersection

// Creates an empty intersection, which the caller owns. Returns -2 if memory runs out ("calloc section err").
int32_t v2xapp_GBMsgSPATSectionInit(GBSPATIS_HANDLE* p_sectionHdl);

// Appends the intersection to the message; the message then owns the intersection. Legacy: if memory for the list runs
// out, the result is also 0, the list's count does not change, and the caller keeps the ownership.
int32_t v2xapp_GBMsgSPATSectionAdd(GBSPAT_HANDLE spatHdl, GBSPATIS_HANDLE sectionHdl);

// Sets the intersection id: the upper 16 bits are the region, the lower 16 bits the node id. Returns -3 if memory for
// the region runs out (warning "intersectionId.region is out of range(0..65535), curr value = ..."); the node id is
// set.
int32_t v2xapp_GBMsgSPATSectionId(GBSPATIS_HANDLE sectionHdl, uint32_t id);

// Sets the status to the low 16 bits of `status` (IntersectionStatusObject). Bit 15 of `status` is the first bit of the
// bit string.
int32_t v2xapp_GBMsgSPATSectionStatus(GBSPATIS_HANDLE sectionHdl, int32_t status);

// These three functions set elements of the intersection. Values and results are the same as for the message: see
// v2xapp_GBMsgSPATMoy, v2xapp_GBMsgSPATSecmark and v2xapp_GBMsgSPATSecmark2.
int32_t v2xapp_GBMsgSPATSectionMoy(GBSPATIS_HANDLE sectionHdl, int32_t* moy);
int32_t v2xapp_GBMsgSPATSectionSecmark(GBSPATIS_HANDLE sectionHdl, uint64_t* now);
int32_t v2xapp_GBMsgSPATSectionSecmark2(GBSPATIS_HANDLE sectionHdl, uint64_t secMark);

// Sets the time confidence, 0 to 39 (TimeConfidence). Null removes the element. An out-of-range value changes nothing
// and returns -2 (error "range out 0..39"). Legacy: a null handle is logged, but returns 0.
int32_t v2xapp_GBMsgSPATSectionTimeCfd(GBSPATIS_HANDLE sectionHdl, int32_t* timeConfidence);

// ---- phase

// Creates an empty phase, which the caller owns. Returns -2 if memory runs out ("calloc section err").
int32_t v2xapp_GBMsgSPATSectionPhaseInit(GBSPATISPHASE_HANDLE* p_phaseHdl);

// Appends the phase to the intersection. Ownership and results are as for v2xapp_GBMsgSPATSectionAdd.
int32_t v2xapp_GBMsgSPATSectionPhaseAdd(GBSPATIS_HANDLE sectionHdl, GBSPATISPHASE_HANDLE phaseHdl);

// Sets the phase id, 0 to 255 (PhaseID). Legacy: any other value is logged and stored, and the result is -2.
int32_t v2xapp_GBMsgSPATSectionPhaseId(GBSPATISPHASE_HANDLE phaseHdl, int32_t phaseId);

// ---- phase state

// Creates an empty phase state, which the caller owns. Returns -2 if memory runs out ("calloc section err").
int32_t v2xapp_GBMsgSPATSectionPhaseStateInit(GBSPATISPHASESTATE_HANDLE* p_stateHdl);

// Appends the state to the phase. Ownership and results are as for v2xapp_GBMsgSPATSectionAdd.
int32_t v2xapp_GBMsgSPATSectionPhaseStateAdd(GBSPATISPHASE_HANDLE phaseHdl, GBSPATISPHASESTATE_HANDLE stateHdl);

// Sets the light, 0 to 8 (LightState). Legacy: any other value is logged and stored, and the result is -2.
int32_t v2xapp_GBMsgSPATSectionPhaseStateLightState(GBSPATISPHASESTATE_HANDLE stateHdl, int32_t light);

// Sets the timing that stateMode selects; a mode other than 1 and 2 changes nothing. Times are truncated to tenths of a
// second (TimeMark; 36001 means unknown). A time outside 0 to 36001 is logged and stored. NaN and values outside the
// range of a long are logged and stored as numbers that the encoder rejects.
// - Start and likely end are always present.
// - Latest and earliest end are absent if negative.
// - The next start is 36001 if negative.
// - Mode 1: the next duration is 36001 if the next START is negative (legacy).
// - Mode 2: the next end is 36001 if the next end is negative.
// - The confidence is truncated to steps of 0.5 % (Confidence). A negative confidence is absent in mode 1 and becomes 0
//   in mode 2. A confidence above 200 steps is logged and stored.
// Returns 0 or -1.
int32_t v2xapp_GBMsgSPATSectionPhaseStatePhaseState(GBSPATISPHASESTATE_HANDLE stateHdl, c_phaseState_t state);

#ifdef __cplusplus
}
#endif
