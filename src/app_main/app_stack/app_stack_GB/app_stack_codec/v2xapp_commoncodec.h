// Conversions that several messages share: bit strings to and from integers, and positions to and from offsets relative
// to a reference position.
//
// Failures are logged at level 2 under the tag "UPER" if the process has registered that tag. Every function may be
// called on any thread; use one value on one thread at a time. Memory that a function adds to a value is malloc's and
// belongs to that value. It is released with the enclosing message (v2xcodec_freeStrcut) or with the type's free
// operation. A failed allocation throws std::bad_alloc.
#pragma once

#include <cstdint>

#include "BIT_STRING.h"
#include "Position3D.h"
#include "PositionOffsetLLV.h"
#include "VerticalOffset.h"

// ---- bit strings

using BITSTRING_HANDLE = BIT_STRING_t*;

// Reads the octets of a bit string as one integer, most significant octet first; bits_unused is ignored. Up to three
// octets give the plain value. A fourth octet of 0x80 or more makes the result negative. From the fifth octet on, octet
// number i, counted from the end, has the weight of octet i modulo 4. A null string or one without octets gives 0. With
// a null longData the call does nothing. Returns 0.
int32_t v2xcodec_bitString2Long(BITSTRING_HANDLE p_bitstring, int64_t* longData);

// Fills a bit string with the low `avail_bit` bits (1 to 127) of *longData. The size is rounded up to whole octets and
// the value is right-aligned: the least significant octet comes last, even if bits_unused is not 0. Bits from the 64th
// on are 0. An avail_bit below 1 gives an empty string. `buf` receives new memory that belongs to the string; the
// previous `buf` is not freed. With a null argument the call does nothing. Returns 0.
int32_t v2xcodec_long2BitString(int64_t* longData, int8_t avail_bit, BITSTRING_HANDLE p_bitstring);

// ---- positions

// Tags of VerticalOffset: six offsets of growing width, then the absolute elevation. PositionOffsetLL uses the same
// numbers.
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

// The planar projection of a position, in metres. These functions neither read nor write it.
struct c_posToXY_t {
    double x;
    double y;
};

// A working position.
struct c_pos3D_t {
    bool posIsValid;
    int8_t m_pos3DSrc; // source of the position
    double lat;        // degrees
    double lon;        // degrees
    bool elevIsValid;
    double elevation; // metres
    c_posToXY_t m_posToXY;
};

// A position in the units of a message.
struct v2xapp_gbMsg_PosStr_t {
    uint8_t m_codeType; // 7 = absolute position, otherwise an offset
    int64_t m_lat;      // 1e-7 degree
    int64_t m_lon;      // 1e-7 degree
    bool m_isContainV;  // an elevation is present
    uint8_t m_elevType; // 7 = absolute elevation, otherwise an offset
    int64_t m_elev;     // 0.1 m
};

// ---- decoding to degrees and metres
//
// `initPos3D` is the reference position and `outPos3D` the result; they may be the same object. posIsValid becomes
// true; m_pos3DSrc and m_posToXY stay unchanged. Return 0; -1 for a null argument ("input param error"), with no
// output.

// Decodes a raw position. An elevation offset is added to the reference elevation, even if that one is invalid.
// elevIsValid becomes m_isContainV.
int32_t v2xcodec_GBpraseMsgPos(const v2xapp_gbMsg_PosStr_t* p_msgPos, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);

// Decodes a PositionOffsetLLV. If the tag of offsetLL is not from 1 to 7, lat and lon stay unchanged. elevIsValid
// becomes true if offsetV is present and the reference elevation is valid; otherwise it becomes false and the elevation
// stays unchanged. This also discards an absolute elevation. If the tag of offsetV is not from 1 to 7, the elevation
// stays unchanged.
int32_t prasePosOffsetLLV(const PositionOffsetLLV_t* p_posOftllv, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);

// ---- decoding to units (1e-7 degree, 0.1 m)

// Decodes a PositionOffsetLLV. If the tag of offsetLL is not from 1 to 7, lat and Long stay unchanged. The result has
// an elevation if offsetV is present and the reference has one; it is 0 if the tag of offsetV is not from 1 to 7. Sums
// are clamped to the range of a long. If both positions are the same object, its elevation is updated in place or
// freed. Otherwise the old value of outPos3D->elevation is overwritten without being read or freed, so the caller
// releases it first. Returns 0; -1 for a null argument ("input param error").
int32_t prasePosOffsetLLVOriginal(const PositionOffsetLLV_t* p_posOftllv, const Position3D_t* initPos3D,
                                  Position3D_t* outPos3D);

// ---- encoding
//
// The first argument is the current position, the second the reference. Encoding selects the narrowest offset that
// holds the larger of the two horizontal differences, or the absolute position beyond 0.8388607 degree. The elevation
// works the same way, with a limit of 204.7 m. The old value of p_outPosOftllv->offsetV is overwritten without being
// read or freed, so the caller releases it first. Return 0; -2 for a null argument ("input para error").

// Encodes from degrees and metres: multiplies differences by 1e7 and 10 and truncates them. Each width excludes its
// bound, so 0.0002047 degree takes the second width. If either elevation is exactly 0.0, it counts as missing and
// offsetV is absent; elevIsValid is ignored. NaN and values beyond a long become values that no encoder accepts.
int32_t setPosOffsetLLV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, PositionOffsetLLV_t* p_outPosOftllv);

// Encodes from units (1e-7 degree, 0.1 m). Each horizontal width includes its bound, so a difference of 2047 takes the
// first width. offsetV is absent unless both positions have an elevation.
int32_t setPosOffsetLLVOriginal(const Position3D_t* currPos3D, const Position3D_t* refPos3D,
                                PositionOffsetLLV_t* p_outPosOftllv);
