// Converts bit strings to and from integers, and positions to and from offsets relative to a reference position.
// Several message types share these conversions.
//
// The functions log failures as errors under the tag "UPER" (v2xapp_log.h). Every function may run on any thread; do
// not use the same object on two threads at once. Members are allocated with malloc and owned by the object.
// v2xcodec_freeStrcut of the enclosing message, or ASN_STRUCT_FREE, frees the members. A failed allocation ends the
// process with abort().
#pragma once

#include <stdbool.h>
#include <stdint.h>

#include "BIT_STRING.h"
#include "Position3D.h"
#include "PositionOffsetLLV.h"
#include "VerticalOffset.h"

#ifdef __cplusplus
extern "C" {
#endif

// ---- bit strings

typedef BIT_STRING_t* BITSTRING_HANDLE;

// Reads the octets of a bit string as one integer, most significant octet first, and ignores bits_unused. Up to three
// octets give an unsigned value. Four octets give a signed 32-bit value. Legacy for longer strings: octet i (the last
// octet is 0) is shifted left by 8 * (i mod 4) bits, read as int32, and added. *longData becomes 0 if the string is
// null or has no octets. The call does nothing if longData is null. Always returns 0.
int32_t v2xcodec_bitString2Long(BITSTRING_HANDLE p_bitstring, int64_t* longData);

// Fills a bit string with the low octets of *longData. The size is `avail_bit` bits (1 to 127), rounded up to whole
// octets. The value is right-aligned: the least significant octet comes last, even if bits_unused is not 0. Bits beyond
// the 64 bits of *longData are 0. An avail_bit below 1 gives an empty string. The string owns the new `buf`; the call
// does not free the previous `buf`. The call does nothing if an argument is null. Always returns 0.
int32_t v2xcodec_long2BitString(int64_t* longData, int8_t avail_bit, BITSTRING_HANDLE p_bitstring);

// ---- positions

// Tags of VerticalOffset: six offsets of increasing width, then the absolute elevation. PositionOffsetLL has the same
// numbers; its tag 7 is the absolute position.
typedef enum COMMONPOSELETYPE {
    COMMON_POSELETYPE_PR_NOTHING = 0,
    COMMON_POSELETYPE_PR_offset1 = 1,
    COMMON_POSELETYPE_PR_offset2 = 2,
    COMMON_POSELETYPE_PR_offset3 = 3,
    COMMON_POSELETYPE_PR_offset4 = 4,
    COMMON_POSELETYPE_PR_offset5 = 5,
    COMMON_POSELETYPE_PR_offset6 = 6,
    COMMON_POSELETYPE_PR_elevation = 7,
} COMMONPOSELETYPE;

// The planar projection of a position, in metres. No function of this header uses it.
typedef struct c_posToXY_t {
    double x;
    double y;
} c_posToXY_t;

// A position in degrees and metres, before encoding or after decoding.
typedef struct c_pos3D_t {
    bool posIsValid;
    int8_t m_pos3DSrc; // the caller's code for the origin of the position; no function of this header uses it
    double lat;        // degrees
    double lon;        // degrees
    bool elevIsValid;
    double elevation; // metres
    c_posToXY_t m_posToXY;
} c_pos3D_t;

// A position in message units (1e-7 degree, 0.1 m).
typedef struct v2xapp_gbMsg_PosStr_t {
    uint8_t m_codeType; // 7: m_lat and m_lon are absolute; any other number: both are offsets
    int64_t m_lat;      // 1e-7 degree
    int64_t m_lon;      // 1e-7 degree
    bool m_isContainV;  // true if m_elev is valid
    uint8_t m_elevType; // 7: m_elev is absolute; any other number: m_elev is an offset
    int64_t m_elev;     // 0.1 m
} v2xapp_gbMsg_PosStr_t;

// ---- decoding to degrees and metres
//
// `initPos3D` is the reference position and `outPos3D` the result; both may be the same object. Both functions set
// posIsValid to true, keep m_pos3DSrc and m_posToXY, and return 0. For a null argument both functions log "input param
// error", keep the result unchanged, and return -1.

// Decodes a position in message units. An elevation offset is added to the reference elevation, even if the reference
// elevation is invalid. elevIsValid becomes m_isContainV. Without m_isContainV, the elevation stays unchanged.
int32_t v2xcodec_GBpraseMsgPos(const v2xapp_gbMsg_PosStr_t* p_msgPos, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);

// Decodes a PositionOffsetLLV. If the tag of offsetLL is not from 1 to 7, lat and lon stay unchanged. elevIsValid
// becomes true if offsetV is present and the reference elevation is valid. Otherwise elevIsValid becomes false and the
// elevation stays unchanged: without a valid reference, even an absolute elevation is discarded (legacy). If the tag of
// offsetV is not from 1 to 7, the elevation stays unchanged.
int32_t prasePosOffsetLLV(const PositionOffsetLLV_t* p_posOftllv, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D);

// ---- decoding to message units (1e-7 degree, 0.1 m)

// Decodes a PositionOffsetLLV relative to the reference position `initPos3D`. If the tag of offsetLL is not from 1 to
// 7, lat and Long stay unchanged. The result has an elevation if both offsetV and the reference elevation are present.
// The elevation is 0 if the tag of offsetV is not from 1 to 7. Sums are clamped to the range of a long. If both
// positions are the same object, its elevation is updated in place or freed. Otherwise outPos3D->elevation is
// overwritten without being read or freed, so the caller frees the old elevation before the call. Returns 0. For a null
// argument the function logs "input param error" and returns -1.
int32_t prasePosOffsetLLVOriginal(const PositionOffsetLLV_t* p_posOftllv, const Position3D_t* initPos3D,
                                  Position3D_t* outPos3D);

// ---- encoding
//
// The first argument is the current position, the second the reference position. Both functions select the narrowest
// offset for the larger of the two horizontal differences. Beyond 0.8388607 degree they encode the absolute position.
// The elevation is encoded in the same way, with a limit of 204.7 m. p_outPosOftllv->offsetV is overwritten without
// being read or freed, so the caller frees the old offsetV before the call. Both functions return 0. For a null
// argument both functions log "input para error" and return -2.

// Encodes from degrees and metres: multiplies the differences by 1e7 or 10 and truncates the products. A difference
// equal to the maximum of a width takes the next width: 0.0002047 degree (2047 units) is encoded as offset2. Legacy: an
// elevation of exactly 0.0 counts as missing, whatever elevIsValid is. offsetV is absent if either elevation is
// missing. NaN and numbers outside the range of a long become numbers that the encoder rejects.
int32_t setPosOffsetLLV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, PositionOffsetLLV_t* p_outPosOftllv);

// Encodes from message units (1e-7 degree, 0.1 m). A horizontal difference equal to the maximum of a width still fits:
// 2047 units are encoded as the first offset. A vertical difference equal to the maximum takes the next width. offsetV
// is absent unless both positions have an elevation.
int32_t setPosOffsetLLVOriginal(const Position3D_t* currPos3D, const Position3D_t* refPos3D,
                                PositionOffsetLLV_t* p_outPosOftllv);

#ifdef __cplusplus
}
#endif
