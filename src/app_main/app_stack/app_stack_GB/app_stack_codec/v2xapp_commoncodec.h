// Pieces that several messages share: bit strings as integers, and positions as offsets from a reference position.
//
// Failures are logged at level 2 under the tag "UPER" where the process has registered it. Every call may be made on
// any thread; one value belongs to one thread at a time. Memory that a call puts into a value is malloc's and belongs
// to that value: it goes with the release of the message around it (v2xcodec_freeStrcut), or with the type's free
// operation.
#pragma once

#include <cstdint>

#include "BIT_STRING.h"
#include "Position3D.h"
#include "PositionOffsetLLV.h"
#include "VerticalOffset.h"

// ---- bit strings

using BITSTRING_HANDLE = BIT_STRING_t*;

// Reads the octets of a bit string as one integer, the first octet the most significant, without regard to bits_unused.
// Plain up to three octets; a fourth of 0x80 or more counts as negative, and from the fifth on octet i from the end
// weighs as octet i modulo 4. A null string, or one without octets, gives 0; a null longData nothing. Returns 0.
int32_t v2xcodec_bitString2Long(BITSTRING_HANDLE p_bitstring, int64_t* longData);

// Fills a bit string with the low `avail_bit` bits of *longData (1 to 127), rounded up to whole octets and
// right-aligned: the least significant octet comes last, also where bits_unused is not 0. Bits from the 64th on are 0.
// An avail_bit below 1 gives the empty string. `buf` is new memory that belongs to the string; what it pointed to
// before is the caller's and is not freed. A null argument, or no memory, leaves the string alone. Returns 0.
int32_t v2xcodec_long2BitString(int64_t* longData, int8_t avail_bit, BITSTRING_HANDLE p_bitstring);

// ---- positions

// Tags of VerticalOffset: offsets of growing width, then the absolute elevation. PositionOffsetLL counts alike.
enum COMMONPOSELETYPE : int32_t {
    COMMON_POSELETYPE_PR_NOTHING = 0,
    COMMON_POSELETYPE_PR_offset1 = 1,
    COMMON_POSELETYPE_PR_offset2 = 2,
    COMMON_POSELETYPE_PR_offset3 = 3,
    COMMON_POSELETYPE_PR_offset4 = 4,
    COMMON_POSELETYPE_PR_offset5 = 5,
    COMMON_POSELETYPE_PR_offset6 = 6,
    COMMON_POSELETYPE_PR_elevation = 7,
};

// A position's planar projection, metres. Nothing here reads or writes it.
struct c_posToXY_t {
    double x;
    double y;
};

// A position to work with.
struct c_pos3D_t {
    bool posIsValid;
    int8_t m_pos3DSrc; // where the position comes from
    double lat;        // degrees
    double lon;        // degrees
    bool elevIsValid;
    double elevation; // metres
    c_posToXY_t m_posToXY;
};

// A position as a message carries it.
struct v2xapp_gbMsg_PosStr_t {
    uint8_t m_codeType; // 7 = absolute position, otherwise an offset
    int64_t m_lat;      // 1e-7 degree
    int64_t m_lon;      // 1e-7 degree
    bool m_isContainV;  // there is an elevation
    uint8_t m_elevType; // 7 = absolute elevation, otherwise an offset
    int64_t m_elev;     // 0.1 m
};

// Decoding into degrees and metres. `initPos3D` is the reference position, `outPos3D` the result; they may be the same.
// posIsValid becomes true, m_pos3DSrc and m_posToXY stay as they are. Return 0; -1 for a null argument ("input param
// error"), nothing is written then.

// Elevation: the offset from the reference's, whether that one is valid or not, or the absolute one; elevIsValid tells
// whether the message has any.
int32_t v2xcodec_GBpraseMsgPos(const v2xapp_gbMsg_PosStr_t* p_msgPos, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);

// A tag of offsetLL outside 1 to 7 leaves lat and lon alone, one of offsetV the elevation. elevIsValid becomes true
// when the message has an offsetV and the reference a valid elevation, and false otherwise, the elevation being left
// alone: an absolute elevation, too, counts only beside a valid one of the reference.
int32_t prasePosOffsetLLV(const PositionOffsetLLV_t* p_posOftllv, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);

// Decoding into whole units. Tags outside 1 to 7 leave lat and Long alone. The result has an elevation when the message
// has an offsetV and the reference an elevation; with a tag of offsetV outside 1 to 7 it is 0. Sums that a long cannot
// hold stop at its end. Where reference and result are one object its elevation is changed in place, or freed; else
// what outPos3D->elevation points to on entry is not looked at: release it before where it is the result's own. Returns
// 0; -1 for a null argument ("input param error").
int32_t prasePosOffsetLLVOriginal(const PositionOffsetLLV_t* p_posOftllv, const Position3D_t* initPos3D,
                                  Position3D_t* outPos3D);

// Encoding takes the narrowest offset that holds the larger of the two differences, or the absolute position beyond
// 0.8388607 degree; likewise for the elevation, beyond 204.7 m. what p_outPosOftllv->offsetV points to on entry is not
// looked at: release it before a second use. Return 0, also when memory for the elevation is lacking (it is absent
// then, "calloc err"); -2 for a null argument ("input para error").

// From degrees and metres: differences times 1e7 and 10, the fraction cut off. Each width starts exactly at its bound,
// so 0.0002047 degree takes the second one. An elevation of exactly 0.0 on either side stands for a missing one,
// whatever elevIsValid says, and leaves offsetV absent. What is no number, or beyond a long, becomes a value that no
// encoder takes.
int32_t setPosOffsetLLV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, PositionOffsetLLV_t* p_outPosOftllv);

// From whole units: a difference of 2047 takes the first width here, and so on. offsetV is absent unless both positions
// have an elevation.
int32_t setPosOffsetLLVOriginal(const Position3D_t* currPos3D, const Position3D_t* refPos3D,
                                PositionOffsetLLV_t* p_outPosOftllv);
