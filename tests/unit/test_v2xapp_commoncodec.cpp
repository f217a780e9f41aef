#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>

#include "bytes.h"
#include "timing_text.h"
#include "v2xapp_commoncodec.h"

namespace {

constexpr long HIGHEST = std::numeric_limits<long>::max();
constexpr long LOWEST = std::numeric_limits<long>::min();

TEST(BitString, ConvertsFromAndToInteger) {
    const struct {
        std::string octets;
        int8_t bits;
        int unused;
        int64_t written;
        int64_t read; // each group of four octets is a number of its own
    } cases[] = {
        {"0102", 12, 4, 0x0102, 258},
        {"FF00000000", 40, 0, 0xFF00000000, 255},
        {"FFFFFFFFFFFFFFFE", 64, 0, -2, -3},
        {"0000000000000000FFFFFFFFFFFFFFFF", 127, 1, -1, -2},
        {"", 0, 0, -1, 0},
    };
    for (const auto& row : cases) {
        BIT_STRING_t bits = {nullptr, 1, 3, {}};
        int64_t value = row.written;
        EXPECT_EQ(v2xcodec_long2BitString(&value, row.bits, &bits), 0);
        EXPECT_EQ(Bytes(bits.buf, bits.buf + bits.size), hex(row.octets));
        EXPECT_EQ(bits.bits_unused, row.unused);
        EXPECT_EQ(v2xcodec_bitString2Long(&bits, &value), 0);
        EXPECT_EQ(value, row.read);
        std::free(bits.buf);
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
    // The elevations are chosen so that their binary difference is exact.
    const struct {
        double here[3]; // lat, lon, elevation
        double from[3];
        std::string offset;
    } cases[] = {
        {{0.00020465, -0.0001, 6.25}, {0, 0, 12.5}, "1: 2046 -1000; 1: -62"},
        {{0.0002047, -0.0001, 6.3}, {0, 0, 12.6}, "2: 2046 -1000; 2: -63"}, // in binary the product stays below 2047
        {{-0.0001, -0.0008191, 25.4}, {0, 0, 12.7}, "3: -1000 -8191; 3: 127"},
        {{0.0001, 0.0032767, 25.5}, {0, 0, 51}, "4: 1000 32767; 4: -255"},
        {{-0.0131071, 0.0001, 102.2}, {0, 0, 51.1}, "5: -131071 1000; 5: 511"},
        {{0.2097151, 0, 102.3}, {0, 0, 204.6}, "6: 2097150 0; 6: -1023"}, // in binary below 2097151
        {{0, -0.8388607, 409.4}, {0, 0, 204.7}, "7: 0 -8388607; 7: 4094"},
        {{39.90625, -116.375, 204.7}, {39.90625, 116.5, 409.4}, "7: 399062500 -1163750000; 7: 2047"},
        {{0, 0, -0.0}, {0, 0, 5}, "1: 0 0"},
        {{0, 0, 5}, {0, 0, 0}, "1: 0 0"},
    };
    for (const auto& row : cases) {
        const c_pos3D_t here = {true, 0, row.here[0], row.here[1], false, row.here[2], {}};
        const c_pos3D_t from = {true, 0, row.from[0], row.from[1], false, row.from[2], {}};
        Offset offset;
        EXPECT_EQ(setPosOffsetLLV(&here, &from, &offset), 0);
        EXPECT_EQ(offset.text(), row.offset);
    }
}

TEST(Position, SelectsWidthByDifferenceInUnits) {
    const std::string lowest = std::to_string(LOWEST);
    const std::string highest = std::to_string(HIGHEST);
    struct {
        long here[3]; // lat, lon, elevation
        long from[3];
        std::string offset;
    } cases[] = {
        {{399002047, 1163000000, 1062}, {399000000, 1163000001, 1000}, "1: 2047 -1; 1: 62"},
        {{399002048, 1163000000, 1063}, {399000000, 1163000001, 1000}, "2: 2048 -1; 2: 63"},
        {{10, 0, 0}, {0, 8192, 127}, "3: 10 -8192; 3: -127"},
        {{0, 32768, 355}, {10, 0, 100}, "4: -10 32768; 4: 255"},
        {{0, 0, -511}, {131072, 131071, 0}, "5: -131072 -131071; 5: -511"},
        {{2097152, 0, 1023}, {0, 0, 0}, "6: 2097152 0; 6: 1023"},
        {{0, 8388607, 3046}, {0, 0, 1000}, "6: 0 8388607; 6: 2046"},
        {{0, 8388608, 3047}, {0, 0, 1000}, "7: 0 8388608; 7: 3047"},
        {{LOWEST, HIGHEST, LOWEST}, {HIGHEST, LOWEST, HIGHEST}, "7: " + lowest + " " + highest + "; 7: " + lowest},
    };
    for (auto& row : cases) {
        const Position3D_t here = {row.here[0], row.here[1], &row.here[2], {}};
        const Position3D_t from = {row.from[0], row.from[1], &row.from[2], {}};
        Offset offset;
        EXPECT_EQ(setPosOffsetLLVOriginal(&here, &from, &offset), 0);
        EXPECT_EQ(offset.text(), row.offset);
    }
}

// Without an offset (tag 0) there is no elevation. The raw message treats unknown tags as offsets.
TEST(Position, DecodesEveryWidthAndIgnoresUnknownTags) {
    const c_pos3D_t origin = {true, 3, 40, 116, true, 50, {}};
    long elevation = 500;
    const Position3D_t reference = {400000000, 1160000000, &elevation, {}};
    for (const int tag : {-1, 0, 1, 2, 3, 4, 5, 6, 7, 8}) {
        SCOPED_TRACE(tag);
        Offset offset(tag, 2000 + tag, -1250, -60 - tag);
        if (tag == 0) {
            free(std::exchange(offset.offsetV, nullptr));
        }
        const bool isOffset = tag >= 1 && tag <= 6;
        c_pos3D_t out = {false, 9, 1, 2, tag == 0, 3, {4, 5}};
        EXPECT_EQ(prasePosOffsetLLV(&offset, &origin, &out), 0);
        EXPECT_TRUE(out.posIsValid);
        EXPECT_EQ(out.elevIsValid, tag != 0);
        EXPECT_DOUBLE_EQ(out.lat, tag == 7 ? 0.0002007 : isOffset ? 40.0002 + 0.0000001 * tag : 1);
        EXPECT_DOUBLE_EQ(out.lon, tag == 7 ? -0.000125 : isOffset ? 115.999875 : 2);
        EXPECT_DOUBLE_EQ(out.elevation, tag == 7 ? -6.7 : isOffset ? 44 - 0.1 * tag : 3);

        Position3D_t current = {1, 2, reinterpret_cast<long*>(&out), {}}; // the pointer must not be followed or freed
        EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
        EXPECT_EQ(current.lat, tag == 7 ? 2007 : isOffset ? 400002000 + tag : 1);
        EXPECT_EQ(current.Long, tag == 7 ? -1250 : isOffset ? 1159998750 : 2);
        EXPECT_EQ(text(current.elevation), tag == 0 ? "-" : std::to_string(tag == 7 ? -67 : isOffset ? 440 - tag : 0));
        free(current.elevation);

        const auto octet = static_cast<uint8_t>(tag);
        const v2xapp_gbMsg_PosStr_t raw = {octet, 2000, -1250, tag != 0, octet, -60};
        out.elevation = 3;
        EXPECT_EQ(v2xcodec_GBpraseMsgPos(&raw, &origin, &out), 0);
        EXPECT_EQ(out.elevIsValid, tag != 0);
        EXPECT_DOUBLE_EQ(out.lat, tag == 7 ? 0.0002 : 40.0002);
        EXPECT_DOUBLE_EQ(out.lon, tag == 7 ? -0.000125 : 115.999875);
        EXPECT_DOUBLE_EQ(out.elevation, tag == 7 ? -6 : tag == 0 ? 3 : 44);
    }
}

TEST(Position, HasNoElevationWithoutReference) {
    const Offset offset(7, 0, 0, 100); // even an absolute elevation needs one in the reference
    const c_pos3D_t origin = {true, 0, 40, 116, false, 50, {}};
    c_pos3D_t out = {false, 0, 0, 0, true, 3, {}};
    EXPECT_EQ(prasePosOffsetLLV(&offset, &origin, &out), 0);
    EXPECT_FALSE(out.elevIsValid);
    const Position3D_t reference = {};
    long previous = 3;
    Position3D_t current = {0, 0, &previous, {}};
    Offset absent;
    EXPECT_EQ(setPosOffsetLLVOriginal(&current, &reference, &absent), 0);
    EXPECT_EQ(absent.offsetV, nullptr);
    EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
    EXPECT_EQ(current.elevation, nullptr);
}

TEST(Position, ClampsSumsInPlace) {
    const Offset offset(6, LOWEST, HIGHEST, 1);
    long elevation = HIGHEST;
    Position3D_t position = {-1, 1, &elevation, {}};
    EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &position, &position), 0);
    EXPECT_EQ(position.lat, LOWEST);
    EXPECT_EQ(position.Long, HIGHEST);
    EXPECT_EQ(position.elevation, &elevation);
    EXPECT_EQ(elevation, HIGHEST);
}

} // namespace
