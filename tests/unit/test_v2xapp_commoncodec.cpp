#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <optional>

#include "bytes.h"
#include "v2xapp_commoncodec.h"

namespace {

constexpr long HIGHEST = std::numeric_limits<long>::max();
constexpr long LOWEST = std::numeric_limits<long>::min();

TEST(BitString, ConvertsToInteger) {
    const struct {
        std::string octets;
        int64_t value;
    } cases[] = {
        {"", 0},
        {"0102", 258},
        {"7FFFFFFF", 2147483647},
        {"80000000", -2147483648},
        {"FF00000000", 255}, // the fifth octet from the end weighs as the first
        {"0000010000000002", 258},
        {"8000000080000000", -4294967296},
    };
    for (const auto& row : cases) {
        Bytes octets = hex(row.octets);
        BIT_STRING_t bits = {octets.data(), static_cast<int>(octets.size()), 4, {}};
        int64_t value = 77;
        EXPECT_EQ(v2xcodec_bitString2Long(&bits, &value), 0);
        EXPECT_EQ(value, row.value) << row.octets;
    }
}

TEST(BitString, ConvertsFromInteger) {
    const struct {
        std::string octets;
        int64_t value;
        int unused;
        int8_t bits;
    } cases[] = {
        {"0102", 0x0102, 4, 12},
        {"02", 0x0102, 0, 8},
        {"FF", 0xFF, 7, 1},
        {"FFFFFFFFFFFFFFFE", -2, 0, 64},
        {"0000000000000000FFFFFFFFFFFFFFFF", -1, 1, 127},
        {"", -1, 0, 0},
        {"", -1, 0, -128},
    };
    for (const auto& row : cases) {
        BIT_STRING_t bits = {nullptr, 1, 3, {}};
        int64_t value = row.value;
        EXPECT_EQ(v2xcodec_long2BitString(&value, row.bits, &bits), 0);
        ASSERT_NE(bits.buf, nullptr);
        EXPECT_EQ(Bytes(bits.buf, bits.buf + bits.size), hex(row.octets)) << row.octets;
        EXPECT_EQ(bits.bits_unused, row.unused) << row.octets;
        std::free(bits.buf);
    }
}

TEST(BitString, IgnoresNullArguments) {
    BIT_STRING_t empty = {nullptr, 4, 3, {}};
    int64_t value = 5;
    EXPECT_EQ(v2xcodec_long2BitString(nullptr, 8, &empty), 0);
    EXPECT_EQ(v2xcodec_long2BitString(&value, 8, nullptr), 0);
    EXPECT_EQ(v2xcodec_bitString2Long(&empty, nullptr), 0);
    EXPECT_EQ(empty.buf, nullptr);
    for (BIT_STRING_t* bits : {&empty, static_cast<BIT_STRING_t*>(nullptr)}) {
        EXPECT_EQ(v2xcodec_bitString2Long(bits, &(value = 5)), 0);
        EXPECT_EQ(value, 0);
    }
}

// An offset whose tags need not be valid. All alternatives have the layout of the first, so that one reads each of
// them.
struct Offset : PositionOffsetLLV_t {
    // An output, which the caller need not initialise.
    Offset() { memset(static_cast<PositionOffsetLLV_t*>(this), 0xA5, sizeof(PositionOffsetLLV_t)); }
    Offset(int tag, long lat, long lon, long elevation) : PositionOffsetLLV_t() {
        offsetV = static_cast<VerticalOffset_t*>(calloc(1, sizeof(VerticalOffset_t)));
        memcpy(&offsetLL.present, &tag, sizeof tag);
        memcpy(&offsetV->present, &tag, sizeof tag);
        offsetLL.choice.position_LL1 = {lon, lat, {}};
        offsetV->choice.offset1 = elevation;
    }
    Offset(const Offset&) = delete;
    Offset& operator=(const Offset&) = delete;
    ~Offset() { free(offsetV); }

    // "tag: latitude longitude", and "; tag: elevation" when there is one.
    std::string text() const {
        const auto string = [](auto value) { return std::to_string(value); };
        const auto& place = offsetLL.choice.position_LL1;
        return string(offsetLL.present) + ": " + string(place.lat) + " " + string(place.lon) +
               (offsetV == nullptr ? "" : "; " + string(offsetV->present) + ": " + string(offsetV->choice.offset1));
    }
};

TEST(Position, SelectsWidthByDifferenceInDegreesAndMetres) {
    const double nan = std::nan("");
    const std::string lowest = std::to_string(LOWEST);
    const std::string highest = std::to_string(HIGHEST);
    // The elevations are chosen so that their binary difference is exact.
    const struct {
        double here[3]; // lat, lon, elevation
        double from[3];
        std::string offset;
    } cases[] = {
        {{0.00020465, -0.0001, 6.25}, {0, 0, 12.5}, "1: 2046 -1000; 1: -62"},
        {{0.0002047, -0.0001, 6.3}, {0, 0, 12.6}, "2: 2046 -1000; 2: -63"}, // in binary the product stays below 2047
        {{-0.0001, -0.00081905, 25.3}, {0, 0, 12.65}, "2: -1000 -8190; 2: 126"},
        {{-0.0001, -0.0008191, 25.4}, {0, 0, 12.7}, "3: -1000 -8191; 3: 127"},
        {{0.0001, 0.00327665, 25.45}, {0, 0, 50.9}, "3: 1000 32766; 3: -254"},
        {{0.0001, 0.0032767, 25.5}, {0, 0, 51}, "4: 1000 32767; 4: -255"},
        {{-0.01310705, 0.0001, 102.1}, {0, 0, 51.05}, "4: -131070 1000; 4: 510"},
        {{-0.0131071, 0.0001, 102.2}, {0, 0, 51.1}, "5: -131071 1000; 5: 511"},
        {{0.20971505, 0, 102.25}, {0, 0, 204.5}, "5: 2097150 0; 5: -1022"},
        {{0.2097151, 0, 102.3}, {0, 0, 204.6}, "6: 2097150 0; 6: -1023"}, // in binary below 2097151
        {{0, -0.83886065, 409.3}, {0, 0, 204.65}, "6: 0 -8388606; 6: 2046"},
        {{0, -0.8388607, 409.4}, {0, 0, 204.7}, "7: 0 -8388607; 7: 4094"},
        {{39.90625, -116.375, 204.7}, {39.90625, 116.5, 409.4}, "7: 399062500 -1163750000; 7: 2047"},
        {{0, 0, -0.0}, {0, 0, 5}, "1: 0 0"},
        {{0, 0, 5}, {0, 0, 0}, "1: 0 0"},
        {{0, 0, 6000.06}, {0, 0, -400}, "1: 0 0; 7: 60000"},
        {{nan, 0, nan}, {0, 0, 1}, "1: " + lowest + " 0; 7: " + lowest},
        {{0, nan, 0}, {0, 0, 1}, "7: 0 " + lowest},
        {{HUGE_VAL, -1e300, 1e300}, {0, 0, 1}, "7: " + highest + " " + lowest + "; 7: " + highest},
    };
    for (const auto& row : cases) {
        const c_pos3D_t here = {true, 0, row.here[0], row.here[1], false, row.here[2], {}};
        const c_pos3D_t from = {true, 0, row.from[0], row.from[1], false, row.from[2], {}};
        Offset offset;
        EXPECT_EQ(setPosOffsetLLV(&here, &from, &offset), 0);
        EXPECT_EQ(offset.text(), row.offset);
    }
}

struct Place {
    long lat;
    long lon;
    std::optional<long> elevation;

    Position3D_t position() { return {lat, lon, elevation.has_value() ? &*elevation : nullptr, {}}; }
};

TEST(Position, SelectsWidthByDifferenceInUnits) {
    const std::string lowest = std::to_string(LOWEST);
    const std::string highest = std::to_string(HIGHEST);
    struct {
        Place here;
        Place from;
        std::string offset;
    } cases[] = {
        {{399002047, 1163000000, 1062}, {399000000, 1163000001, 1000}, "1: 2047 -1; 1: 62"},
        {{399002048, 1163000000, 1063}, {399000000, 1163000001, 1000}, "2: 2048 -1; 2: 63"},
        {{10, 0, 0}, {0, 8191, 126}, "2: 10 -8191; 2: -126"},
        {{10, 0, 0}, {0, 8192, 127}, "3: 10 -8192; 3: -127"},
        {{0, 32767, 354}, {10, 0, 100}, "3: -10 32767; 3: 254"},
        {{0, 32768, 355}, {10, 0, 100}, "4: -10 32768; 4: 255"},
        {{0, 0, -510}, {131071, 131071, 0}, "4: -131071 -131071; 4: -510"},
        {{0, 0, -511}, {131072, 131071, 0}, "5: -131072 -131071; 5: -511"},
        {{2097151, 0, 1022}, {0, 0, 0}, "5: 2097151 0; 5: 1022"},
        {{2097152, 0, 1023}, {0, 0, 0}, "6: 2097152 0; 6: 1023"},
        {{0, 8388607, 3046}, {0, 0, 1000}, "6: 0 8388607; 6: 2046"},
        {{0, 8388608, 3047}, {0, 0, 1000}, "7: 0 8388608; 7: 3047"},
        {{5, 0, std::nullopt}, {5, 8388608, 10}, "7: 5 0"},
        {{LOWEST, 3, 10}, {HIGHEST, 3, std::nullopt}, "7: " + lowest + " 3"},
        {{3, HIGHEST, LOWEST}, {3, LOWEST, HIGHEST}, "7: 3 " + highest + "; 7: " + lowest},
        {{0, LOWEST / 2, HIGHEST}, {0, -(LOWEST / 2), LOWEST}, "7: 0 -4611686018427387904; 7: " + highest},
    };
    for (auto& row : cases) {
        const Position3D_t here = row.here.position();
        const Position3D_t from = row.from.position();
        Offset offset;
        EXPECT_EQ(setPosOffsetLLVOriginal(&here, &from, &offset), 0);
        EXPECT_EQ(offset.text(), row.offset);
    }
}

TEST(Position, DecodesEveryWidthAndIgnoresUnknownTags) {
    const c_pos3D_t origin = {true, 3, 40, 116, true, 50, {}};
    Place place = {400000000, 1160000000, 500};
    const Position3D_t reference = place.position();
    for (const int tag : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8}) {
        SCOPED_TRACE(tag);
        const Offset offset(tag, 2000 + tag, -1250, -60 - tag);
        const bool isOffset = tag >= 1 && tag <= 6;
        c_pos3D_t out = {false, 9, 1, 2, false, 3, {4, 5}};
        EXPECT_EQ(prasePosOffsetLLV(&offset, &origin, &out), 0);
        EXPECT_TRUE(out.posIsValid && out.elevIsValid);
        EXPECT_DOUBLE_EQ(out.lat, tag == 7 ? 0.0002007 : isOffset ? 40.0002 + 0.0000001 * tag : 1);
        EXPECT_DOUBLE_EQ(out.lon, tag == 7 ? -0.000125 : isOffset ? 115.999875 : 2);
        EXPECT_DOUBLE_EQ(out.elevation, tag == 7 ? -6.7 : isOffset ? 44 - 0.1 * tag : 3);
        EXPECT_EQ(out.m_pos3DSrc, 9);
        EXPECT_EQ(out.m_posToXY.x + out.m_posToXY.y, 9);

        Position3D_t current = {1, 2, reinterpret_cast<long*>(&place), {}}; // the pointer must not be followed or freed
        EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
        EXPECT_EQ(current.lat, tag == 7 ? 2007 : isOffset ? 400002000 + tag : 1);
        EXPECT_EQ(current.Long, tag == 7 ? -1250 : isOffset ? 1159998750 : 2);
        EXPECT_EQ(*current.elevation, tag == 7 ? -67 : isOffset ? 440 - tag : 0);
        free(current.elevation);
    }
}

TEST(Position, HasNoElevationWithoutOffsetOrReference) {
    for (const bool hasOffset : {false, true}) {
        Offset offset(7, 0, 0, 100); // even an absolute elevation needs one in the reference
        if (!hasOffset) {
            free(std::exchange(offset.offsetV, nullptr));
        }
        const c_pos3D_t origin = {true, 0, 40, 116, !hasOffset, 50, {}};
        c_pos3D_t out = {false, 0, 0, 0, true, 3, {}};
        EXPECT_EQ(prasePosOffsetLLV(&offset, &origin, &out), 0);
        EXPECT_FALSE(out.elevIsValid);
        EXPECT_EQ(out.elevation, 3);

        Place place = {0, 0, hasOffset ? std::nullopt : std::optional<long>(500)};
        const Position3D_t reference = place.position();
        Position3D_t current = {0, 0, &place.lat, {}};
        EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
        EXPECT_EQ(current.elevation, nullptr);
    }
}

TEST(Position, ClampsSumsInPlace) {
    const Offset offset(6, LOWEST, HIGHEST, 1);
    Place place = {-1, 1, HIGHEST};
    Position3D_t position = place.position();
    EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &position, &position), 0);
    EXPECT_EQ(position.lat, LOWEST);
    EXPECT_EQ(position.Long, HIGHEST);
    EXPECT_EQ(position.elevation, &*place.elevation);
    EXPECT_EQ(*place.elevation, HIGHEST);
}

TEST(Position, ConvertsRawMessagePosition) {
    const c_pos3D_t origin = {true, 0, 40, 116, false, 50, {}};
    const struct {
        v2xapp_gbMsg_PosStr_t message;
        double lat;
        double lon;
        double elevation;
    } cases[] = {
        {{1, 2000, -1250, false, 0, 70}, 40.0002, 115.999875, 3},
        {{0, 2000, -1250, true, 6, 70}, 40.0002, 115.999875, 57},
        {{6, 2000, -1250, true, 7, -70}, 40.0002, 115.999875, -7},
        {{7, 399000000, -1163000000, true, 8, -70}, 39.9, -116.3, 43},
        {{8, 2000, -1250, true, 0, 0}, 40.0002, 115.999875, 50},
    };
    for (const auto& row : cases) {
        c_pos3D_t out = {false, 9, 1, 2, !row.message.m_isContainV, 3, {}};
        EXPECT_EQ(v2xcodec_GBpraseMsgPos(&row.message, &origin, &out), 0);
        EXPECT_TRUE(out.posIsValid);
        EXPECT_DOUBLE_EQ(out.lat, row.lat);
        EXPECT_DOUBLE_EQ(out.lon, row.lon);
        EXPECT_EQ(out.elevIsValid, row.message.m_isContainV);
        EXPECT_DOUBLE_EQ(out.elevation, row.elevation);
    }
}

} // namespace
