// Builds a MessageFrame that carries a SPAT, step by step: the frame, its message-level elements, and intersections,
// phases and phase states, each made, filled and then added to what it belongs to.
//
// Order: Init; message elements; for each intersection SectionInit and its elements, for each phase PhaseInit and
// PhaseId, for each state PhaseStateInit, LightState, PhaseState, then PhaseStateAdd; PhaseAdd; SectionAdd. Encode with
// v2xcodec_uperEnc, release with v2xcodec_freeStrcut (v2xapp_upercodec.h).
//
// Ownership: what an operation allocates is malloc's and belongs to the value that it is put into; setting an element
// again reuses or frees what was there. A child made by an Init is the caller's until it is added, then its parent's:
// add it once, and release one that is never added with its type's free operation. Arguments are copied, none is kept.
//
// Results: 0; -1 for a null handle or a null place for a result ("input err", level 2); -3 where memory for an element
// is lacking ("calloc err", level 2), which leaves the element as it was; others as told below. Nothing is rolled back.
// Values out of range are logged at level 3; encoding refuses those that are kept.
//
// Lines go to the tag "GBSM" where the process has registered it. Every call may be made on any thread; one frame, and
// what is to become part of it, belongs to one thread at a time.
#pragma once

#include <cstdint>

using GBMSG_HANDLE = void*;              // a MessageFrame_t
using GBSPAT_HANDLE = void*;             // the SPAT_t inside it, which lives as long as the frame
using GBSPATIS_HANDLE = void*;           // an IntersectionState_t
using GBSPATISPHASE_HANDLE = void*;      // a Phase_t
using GBSPATISPHASESTATE_HANDLE = void*; // a PhaseState_t

// One phase state's times, in seconds. The flags and lightState are not looked at: the sign of a value tells whether an
// optional element is there.
struct c_phaseState_t {
    int8_t stateMode; // 1 = times count down from now, 2 = times within the hour of UTC
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
    double opt_nextDuration;   // in mode 2 the next end time
    double opt_timeConfidence; // 0 to 1
};

// ---- message

// Makes an empty frame with a SPAT in it; the caller owns the frame. Returns 0; -1 also without memory ("malloc memory
// error!").
int32_t v2xapp_GBMsgSPATInit(GBMSG_HANDLE* p_msgHdl, GBSPAT_HANDLE* p_spatHdl);

// Sets msgCnt to the next message count: 1, 2, ... 127, 0, 1, ... over all messages and threads of the process.
int32_t getSPATMsgCnt(GBSPAT_HANDLE spatHdl);

// Minute of the year. Null makes it absent; 0 to 527040 is stored; anything else turns a minute that is there into
// 527040 (invalid) and leaves an absent one absent.
int32_t v2xapp_GBMsgSPATMoy(GBSPAT_HANDLE spatHdl, int32_t* moy);

// Name: `len` bytes at `text`, or up to its NUL when len is negative; only 1 to 63 bytes of ASCII can be encoded. A
// null text makes the name absent, but leaves it alone when len is 1 to 63. Without memory the name stays as it was;
// returns 0.
int32_t v2xapp_GBMsgSPATName(GBSPAT_HANDLE spatHdl, char* text, int32_t len);

// Time stamp: the millisecond of the minute of *now, microseconds since a full minute such as 1970's start. Returns -1
// for a null clock, too.
int32_t v2xapp_GBMsgSPATSecmark(GBSPAT_HANDLE spatHdl, uint64_t* now);

// Time stamp as given, 0 to 65535; anything else is logged and becomes 60000.
int32_t v2xapp_GBMsgSPATSecmark2(GBSPAT_HANDLE spatHdl, uint64_t secMark);

// ---- intersection

// Makes an empty intersection, which the caller owns. Returns -2 without memory ("calloc section err").
int32_t v2xapp_GBMsgSPATSectionInit(GBSPATIS_HANDLE* p_sectionHdl);

// Appends the intersection to the message, which owns it from now on. Returns 0 also when memory for the longer list is
// lacking; the intersection stays the caller's then, which the list's count tells.
int32_t v2xapp_GBMsgSPATSectionAdd(GBSPAT_HANDLE spatHdl, GBSPATIS_HANDLE sectionHdl);

// Intersection id: region in the upper 16 bits, node id in the lower ones. Returns -3 without memory for the region
// ("intersectionId.region is out of range(0..65535), curr value = ...", level 3); the node id is set then.
int32_t v2xapp_GBMsgSPATSectionId(GBSPATIS_HANDLE sectionHdl, uint32_t id);

// Status: the low 16 bits, bit 15 the first of the bit string.
int32_t v2xapp_GBMsgSPATSectionStatus(GBSPATIS_HANDLE sectionHdl, int32_t status);

// As the message's.
int32_t v2xapp_GBMsgSPATSectionMoy(GBSPATIS_HANDLE sectionHdl, int32_t* moy);
int32_t v2xapp_GBMsgSPATSectionSecmark(GBSPATIS_HANDLE sectionHdl, uint64_t* now);
int32_t v2xapp_GBMsgSPATSectionSecmark2(GBSPATIS_HANDLE sectionHdl, uint64_t secMark);

// Time confidence, 0 to 39; null makes it absent. Returns 0, for a null handle too ("input err"); -2 for a value out of
// range ("range out 0..39", level 2), which changes nothing.
int32_t v2xapp_GBMsgSPATSectionTimeCfd(GBSPATIS_HANDLE sectionHdl, int32_t* timeConfidence);

// ---- phase

// Makes an empty phase, which the caller owns. Returns -2 without memory ("calloc section err").
int32_t v2xapp_GBMsgSPATSectionPhaseInit(GBSPATISPHASE_HANDLE* p_phaseHdl);

// Appends the phase to the intersection; as SectionAdd.
int32_t v2xapp_GBMsgSPATSectionPhaseAdd(GBSPATIS_HANDLE sectionHdl, GBSPATISPHASE_HANDLE phaseHdl);

// Phase id, 0 to 255. Another value is kept and returns -2.
int32_t v2xapp_GBMsgSPATSectionPhaseId(GBSPATISPHASE_HANDLE phaseHdl, int32_t phaseId);

// ---- phase state

// Makes an empty phase state, which the caller owns. Returns -2 without memory ("calloc section err").
int32_t v2xapp_GBMsgSPATSectionPhaseStateInit(GBSPATISPHASESTATE_HANDLE* p_stateHdl);

// Appends the state to the phase; as SectionAdd.
int32_t v2xapp_GBMsgSPATSectionPhaseStateAdd(GBSPATISPHASE_HANDLE phaseHdl, GBSPATISPHASESTATE_HANDLE stateHdl);

// Light, 0 to 8. Another value is kept and returns -2.
int32_t v2xapp_GBMsgSPATSectionPhaseStateLightState(GBSPATISPHASESTATE_HANDLE stateHdl, int32_t light);

// Timing, as stateMode says; another mode than 1 and 2 changes nothing. Times become tenths of a second, the fraction
// cut off; those outside 0 to 36001 are logged and kept. What is no number, or beyond a long, is out of range as well.
// - start and likely end: always present.
// - latest and earliest end: absent when negative.
// - next start: 36001 (unknown) when negative.
// - next duration (mode 1): 36001 when the next START is negative; next end (mode 2): 36001 when itself negative.
// - confidence, in steps of 0.5 %, logged and kept outside 0 to 200: when negative, absent in mode 1 and 0 in mode 2.
// Returns 0 or -1. Without memory for the timing the old one stays, without memory for an element that one is absent.
int32_t v2xapp_GBMsgSPATSectionPhaseStatePhaseState(GBSPATISPHASESTATE_HANDLE stateHdl, c_phaseState_t state);
