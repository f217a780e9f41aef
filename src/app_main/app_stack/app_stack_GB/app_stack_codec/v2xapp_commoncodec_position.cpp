#include <cmath>
#include <cstdlib>
#include <cstring>
#include <iterator>
#include <limits>

#include "v2xapp_commoncodec.h"
#include "v2xapp_private.h"
#include "v2xapp_truncate.h"

namespace {

constexpr const char* TAG = "UPER"; // of the log lines

constexpr double UNITS_PER_DEGREE = 1e7;
constexpr double DEGREES_PER_UNIT = 1e-7;
constexpr double UNITS_PER_METRE = 10;
constexpr double METRES_PER_UNIT = 0.1;

// ---- Each table lists the alternatives of one ASN.1 CHOICE in the order of their tags: first the offsets, from the
// fewest bits to the most, then the absolute value. An offset is used if the distance is below the limit in its row.
// The absolute value has no limit. The horizontal limits in degrees and in units differ by one unit; receivers rely on
// both.

struct LonLat {
    long lon;
    long lat;
};

using HorizontalChoice = PositionOffsetLL::PositionOffsetLL_u;

struct HorizontalWidth {
    double belowDegrees;
    uint64_t belowUnits;
    LonLat (*get)(const HorizontalChoice& choice);
    void (*set)(HorizontalChoice& choice, LonLat value);
};

template <auto Alternative>
constexpr HorizontalWidth MakeHorizontalWidth(double belowDegrees, uint64_t belowUnits) {
    return {belowDegrees, belowUnits,
            [](const HorizontalChoice& choice) -> LonLat {
                return {(choice.*Alternative).lon, (choice.*Alternative).lat};
            },
            [](HorizontalChoice& choice, LonLat value) {
                choice.*Alternative = {};
                (choice.*Alternative).lon = value.lon;
                (choice.*Alternative).lat = value.lat;
            }};
}

constexpr HorizontalWidth HORIZONTAL_WIDTHS[] = {
    MakeHorizontalWidth<&HorizontalChoice::position_LL1>(0.0002047, 2048),
    MakeHorizontalWidth<&HorizontalChoice::position_LL2>(0.0008191, 8192),
    MakeHorizontalWidth<&HorizontalChoice::position_LL3>(0.0032767, 32768),
    MakeHorizontalWidth<&HorizontalChoice::position_LL4>(0.0131071, 131072),
    MakeHorizontalWidth<&HorizontalChoice::position_LL5>(0.2097151, 2097152),
    MakeHorizontalWidth<&HorizontalChoice::position_LL6>(0.8388607, 8388608),
    MakeHorizontalWidth<&HorizontalChoice::position_LatLon>(0, 0),
};
static_assert(std::size(HORIZONTAL_WIDTHS) == PositionOffsetLL_PR_position_LatLon);

using VerticalChoice = VerticalOffset::VerticalOffset_u;

struct VerticalWidth {
    double belowMetres;
    uint64_t belowUnits;
    long VerticalChoice::*value;
};

constexpr VerticalWidth VERTICAL_WIDTHS[] = {
    {6.3, 63, &VerticalChoice::offset1},     {12.7, 127, &VerticalChoice::offset2},
    {25.5, 255, &VerticalChoice::offset3},   {51.1, 511, &VerticalChoice::offset4},
    {102.3, 1023, &VerticalChoice::offset5}, {204.7, 2047, &VerticalChoice::offset6},
    {0, 0, &VerticalChoice::elevation},
};
static_assert(std::size(VERTICAL_WIDTHS) == COMMON_POSELETYPE_PR_elevation);
static_assert(static_cast<int>(VerticalOffset_PR_elevation) == COMMON_POSELETYPE_PR_elevation);

constexpr int32_t ABSOLUTE = COMMON_POSELETYPE_PR_elevation;

// Returns the tag of the narrowest offset for the distance, or the tag of the absolute value. `below` selects the limit
// of a table row: belowDegrees, belowMetres or belowUnits.
template <typename Width, size_t N, typename Distance>
int32_t SelectTag(const Width (&widths)[N], Distance Width::*below, Distance distance) {
    for (size_t i = 0; i + 1 < N; i++) {
        if (distance < widths[i].*below) {
            return static_cast<int32_t>(i) + 1;
        }
    }
    return static_cast<int32_t>(N);
}

// Returns the tag of a choice, or 0 if the tag is not from 1 to 7. Reads `present` as an integer, because an invalid
// tag may be outside the enumeration.
template <typename Choice>
int32_t ReadTag(const Choice& choice) {
    int32_t tag;
    static_assert(sizeof choice.present == sizeof tag);
    std::memcpy(&tag, &choice.present, sizeof tag);
    return tag >= 1 && tag <= ABSOLUTE ? tag : 0;
}

// ---- arithmetic

// Converts message units to degrees or metres: multiplies by `scale` and, for an offset, adds the reference.
double FromUnits(bool isAbsolute, double reference, long units, double scale) {
    return (isAbsolute ? 0 : reference) + static_cast<double>(units) * scale;
}

// Returns the sum, clamped to the range of a long.
long AddClamped(long offset, long reference) {
    long sum = 0;
    if (__builtin_add_overflow(offset, reference, &sum)) {
        return offset < 0 ? std::numeric_limits<long>::min() : std::numeric_limits<long>::max();
    }
    return sum;
}

// Returns the absolute difference, which may exceed the range of a long.
uint64_t Distance(long a, long b) {
    const auto from = static_cast<uint64_t>(a < b ? a : b);
    const auto to = static_cast<uint64_t>(a < b ? b : a);
    return to - from;
}

// ---- decoding

int32_t prasePosOffsetV(const VerticalOffset_t* vertoft, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D) {
    const bool hasElevation = vertoft != nullptr && initPos3D->elevIsValid;
    outPos3D->elevIsValid = hasElevation;
    const int32_t tag = hasElevation ? ReadTag(*vertoft) : 0;
    if (tag != 0) {
        outPos3D->elevation = FromUnits(tag == ABSOLUTE, initPos3D->elevation,
                                        vertoft->choice.*VERTICAL_WIDTHS[tag - 1].value, METRES_PER_UNIT);
    }
    return 0;
}

int32_t prasePosOffsetVOriginal(const VerticalOffset_t* vertoft, const Position3D_t* initPos3D,
                                Position3D_t* outPos3D) {
    const bool isInPlace = outPos3D == initPos3D;
    if (vertoft == nullptr || initPos3D->elevation == nullptr) {
        if (isInPlace) {
            std::free(outPos3D->elevation);
        }
        outPos3D->elevation = nullptr;
        return 0;
    }
    long elevation = 0;
    const int32_t tag = ReadTag(*vertoft);
    if (tag != 0) {
        const long base = tag == ABSOLUTE ? 0 : *initPos3D->elevation;
        elevation = AddClamped(vertoft->choice.*VERTICAL_WIDTHS[tag - 1].value, base);
    }
    if (!isInPlace) {
        outPos3D->elevation = v2xapp_New<Elevation_t>();
    }
    *outPos3D->elevation = elevation;
    return 0;
}

// ---- encoding

int32_t setPosOffsetV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, PositionOffsetLLV_t* outPosOftllv) {
    if (currPos3D->elevation == 0.0 || hpathPos3D->elevation == 0.0) {
        outPosOftllv->offsetV = nullptr;
        return 0;
    }
    outPosOftllv->offsetV = v2xapp_New<VerticalOffset_t>();
    const double difference = currPos3D->elevation - hpathPos3D->elevation;
    const int32_t tag = SelectTag(VERTICAL_WIDTHS, &VerticalWidth::belowMetres, std::fabs(difference));
    const double metres = tag == ABSOLUTE ? currPos3D->elevation : difference;
    outPosOftllv->offsetV->present = static_cast<VerticalOffset_PR>(tag);
    outPosOftllv->offsetV->choice.*VERTICAL_WIDTHS[tag - 1].value = v2xapp_Truncate(metres * UNITS_PER_METRE);
    return 0;
}

int32_t setPosOffsetVOriginal(const Position3D_t* currPos3D, const Position3D_t* refPos3D,
                              PositionOffsetLLV_t* outPosOftllv) {
    if (currPos3D->elevation == nullptr || refPos3D->elevation == nullptr) {
        outPosOftllv->offsetV = nullptr;
        return 0;
    }
    outPosOftllv->offsetV = v2xapp_New<VerticalOffset_t>();
    const long current = *currPos3D->elevation;
    const long reference = *refPos3D->elevation;
    const int32_t tag = SelectTag(VERTICAL_WIDTHS, &VerticalWidth::belowUnits, Distance(current, reference));
    outPosOftllv->offsetV->present = static_cast<VerticalOffset_PR>(tag);
    outPosOftllv->offsetV->choice.*VERTICAL_WIDTHS[tag - 1].value = tag == ABSOLUTE ? current : current - reference;
    return 0;
}

void SetHorizontalOffset(PositionOffsetLL_t& offset, int32_t tag, LonLat value) {
    offset.present = static_cast<PositionOffsetLL_PR>(tag);
    HORIZONTAL_WIDTHS[tag - 1].set(offset.choice, value);
}

} // namespace

int32_t v2xcodec_GBpraseMsgPos(const v2xapp_gbMsg_PosStr_t* p_msgPos, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D) {
    if (!v2xapp_Check(TAG, p_msgPos != nullptr && initPos3D != nullptr && outPos3D != nullptr, "input param error")) {
        return -1;
    }
    const bool isAbsolute = p_msgPos->m_codeType == ABSOLUTE;
    outPos3D->posIsValid = true;
    outPos3D->lon = FromUnits(isAbsolute, initPos3D->lon, p_msgPos->m_lon, DEGREES_PER_UNIT);
    outPos3D->lat = FromUnits(isAbsolute, initPos3D->lat, p_msgPos->m_lat, DEGREES_PER_UNIT);
    outPos3D->elevIsValid = p_msgPos->m_isContainV;
    if (p_msgPos->m_isContainV) {
        outPos3D->elevation =
            FromUnits(p_msgPos->m_elevType == ABSOLUTE, initPos3D->elevation, p_msgPos->m_elev, METRES_PER_UNIT);
    }
    return 0;
}

int32_t prasePosOffsetLLV(const PositionOffsetLLV_t* p_posOftllv, const c_pos3D_t* initPos3D, c_pos3D_t* outPos3D) {
    if (!v2xapp_Check(TAG, p_posOftllv != nullptr && initPos3D != nullptr && outPos3D != nullptr,
                      "input param error")) {
        return -1;
    }
    outPos3D->posIsValid = true;
    const int32_t tag = ReadTag(p_posOftllv->offsetLL);
    if (tag != 0) {
        const LonLat value = HORIZONTAL_WIDTHS[tag - 1].get(p_posOftllv->offsetLL.choice);
        const bool isAbsolute = tag == ABSOLUTE;
        outPos3D->lon = FromUnits(isAbsolute, initPos3D->lon, value.lon, DEGREES_PER_UNIT);
        outPos3D->lat = FromUnits(isAbsolute, initPos3D->lat, value.lat, DEGREES_PER_UNIT);
    }
    return prasePosOffsetV(p_posOftllv->offsetV, initPos3D, outPos3D);
}

int32_t prasePosOffsetLLVOriginal(const PositionOffsetLLV_t* p_posOftllv, const Position3D_t* initPos3D,
                                  Position3D_t* outPos3D) {
    if (!v2xapp_Check(TAG, p_posOftllv != nullptr && initPos3D != nullptr && outPos3D != nullptr,
                      "input param error")) {
        return -1;
    }
    const int32_t tag = ReadTag(p_posOftllv->offsetLL);
    if (tag != 0) {
        const LonLat value = HORIZONTAL_WIDTHS[tag - 1].get(p_posOftllv->offsetLL.choice);
        const bool isAbsolute = tag == ABSOLUTE;
        outPos3D->Long = AddClamped(value.lon, isAbsolute ? 0 : initPos3D->Long);
        outPos3D->lat = AddClamped(value.lat, isAbsolute ? 0 : initPos3D->lat);
    }
    return prasePosOffsetVOriginal(p_posOftllv->offsetV, initPos3D, outPos3D);
}

int32_t setPosOffsetLLV(const c_pos3D_t* currPos3D, const c_pos3D_t* hpathPos3D, PositionOffsetLLV_t* p_outPosOftllv) {
    if (!v2xapp_Check(TAG, currPos3D != nullptr && hpathPos3D != nullptr && p_outPosOftllv != nullptr,
                      "input para error")) {
        return -2;
    }
    const double lat = currPos3D->lat - hpathPos3D->lat;
    const double lon = currPos3D->lon - hpathPos3D->lon;
    const double larger = std::fabs(lat) > std::fabs(lon) ? std::fabs(lat) : std::fabs(lon);
    const int32_t tag = SelectTag(HORIZONTAL_WIDTHS, &HorizontalWidth::belowDegrees, larger);
    const bool isAbsolute = tag == ABSOLUTE;
    SetHorizontalOffset(p_outPosOftllv->offsetLL, tag,
                        {v2xapp_Truncate((isAbsolute ? currPos3D->lon : lon) * UNITS_PER_DEGREE),
                         v2xapp_Truncate((isAbsolute ? currPos3D->lat : lat) * UNITS_PER_DEGREE)});
    return setPosOffsetV(currPos3D, hpathPos3D, p_outPosOftllv);
}

int32_t setPosOffsetLLVOriginal(const Position3D_t* currPos3D, const Position3D_t* refPos3D,
                                PositionOffsetLLV_t* p_outPosOftllv) {
    if (!v2xapp_Check(TAG, currPos3D != nullptr && refPos3D != nullptr && p_outPosOftllv != nullptr,
                      "input para error")) {
        return -2;
    }
    const uint64_t lat = Distance(currPos3D->lat, refPos3D->lat);
    const uint64_t lon = Distance(currPos3D->Long, refPos3D->Long);
    const int32_t tag = SelectTag(HORIZONTAL_WIDTHS, &HorizontalWidth::belowUnits, lat > lon ? lat : lon);
    const LonLat value = tag == ABSOLUTE ? LonLat{currPos3D->Long, currPos3D->lat}
                                         : LonLat{currPos3D->Long - refPos3D->Long, currPos3D->lat - refPos3D->lat};
    SetHorizontalOffset(p_outPosOftllv->offsetLL, tag, value);
    return setPosOffsetVOriginal(currPos3D, refPos3D, p_outPosOftllv);
}
