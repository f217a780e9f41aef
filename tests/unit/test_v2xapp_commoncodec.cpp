#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <optional>
#include <string>
#include <utility>

#include "fakes.h"
#include "no_memory.h"
#include "v2x/v2xmsgset.h"
#include "v2xapp_commoncodec.h"

namespace {

constexpr long LONGEST = std::numeric_limits<long>::max();
constexpr long LOWEST = std::numeric_limits<long>::min();

TEST(BitString, ToInteger) {
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
        for (const int unused : {0, 4}) {
            BIT_STRING_t bits = {octets.data(), static_cast<int>(octets.size()), unused, {}};
            int64_t value = 77;
            EXPECT_EQ(v2xcodec_bitString2Long(&bits, &value), 0);
            EXPECT_EQ(value, row.value) << row.octets;
        }
    }
}

TEST(BitString, FromInteger) {
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
        Bytes before = {9};
        BIT_STRING_t bits = {before.data(), 1, 3, {}};
        int64_t value = row.value;
        EXPECT_EQ(v2xcodec_long2BitString(&value, row.bits, &bits), 0);
        ASSERT_NE(bits.buf, nullptr);
        ASSERT_NE(bits.buf, before.data()) << "what was there is the caller's";
        EXPECT_EQ(Bytes(bits.buf, bits.buf + bits.size), hex(row.octets)) << row.octets;
        EXPECT_EQ(bits.bits_unused, row.unused) << row.octets;
        std::free(bits.buf);
    }
}

TEST(BitString, NullArguments) {
    Bytes octets = {9};
    BIT_STRING_t bits = {octets.data(), 1, 3, {}};
    int64_t value = 5;
    EXPECT_EQ(v2xcodec_long2BitString(nullptr, 8, &bits), 0);
    EXPECT_EQ(v2xcodec_long2BitString(&value, 8, nullptr), 0);
    EXPECT_EQ(v2xcodec_bitString2Long(&bits, nullptr), 0);
    EXPECT_EQ(bits.buf, octets.data());
    EXPECT_EQ(bits.bits_unused, 3);
    EXPECT_EQ(value, 5);
    EXPECT_EQ(v2xcodec_bitString2Long(nullptr, &value), 0);
    EXPECT_EQ(value, 0);
    BIT_STRING_t hollow = {nullptr, 4, 0, {}};
    value = 5;
    EXPECT_EQ(v2xcodec_bitString2Long(&hollow, &value), 0);
    EXPECT_EQ(value, 0);
}

// An offset whose members are found by the number of their tag; before anything is set it holds rubbish, as an output
// may.
struct Offset : PositionOffsetLLV_t {
    Offset() { memset(static_cast<PositionOffsetLLV_t*>(this), 0xA5, sizeof(PositionOffsetLLV_t)); }
    // With a tag for both parts, also one that the enumerations cannot hold.
    Offset(int tag, long lat, long lon, long elevation) : PositionOffsetLLV_t() {
        offsetV = static_cast<VerticalOffset_t*>(calloc(1, sizeof(VerticalOffset_t)));
        memcpy(&offsetLL.present, &tag, sizeof tag);
        memcpy(&offsetV->present, &tag, sizeof tag);
        if (tag >= 1 && tag <= 7) {
            *horizontal(tag).lat = lat;
            *horizontal(tag).lon = lon;
            vertical(tag) = elevation;
        }
    }
    Offset(const Offset&) = delete;
    Offset& operator=(const Offset&) = delete;
    ~Offset() {
        int none = 0;
        memcpy(&offsetLL.present, &none, sizeof none);
        ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_PositionOffsetLLV, static_cast<PositionOffsetLLV_t*>(this));
    }

    struct LatLon {
        long* lat;
        long* lon;
    };
    LatLon horizontal(int tag) {
        auto& c = offsetLL.choice;
        const auto of = [](auto& alternative) { return LatLon{&alternative.lat, &alternative.lon}; };
        const LatLon members[] = {of(c.position_LL1), of(c.position_LL2), of(c.position_LL3),   of(c.position_LL4),
                                  of(c.position_LL5), of(c.position_LL6), of(c.position_LatLon)};
        return members[tag - 1];
    }
    long& vertical(int tag) {
        auto& c = offsetV->choice;
        long* const members[] = {&c.offset1, &c.offset2, &c.offset3, &c.offset4, &c.offset5, &c.offset6, &c.elevation};
        return *members[tag - 1];
    }
    // Both parts as "tag: value...", with a mark behind what cannot be encoded.
    std::string shown() {
        const LatLon place = horizontal(offsetLL.present);
        std::string text =
            std::to_string(offsetLL.present) + ": " + std::to_string(*place.lat) + " " + std::to_string(*place.lon);
        if (offsetV != nullptr) {
            text += "; " + std::to_string(offsetV->present) + ": " + std::to_string(vertical(offsetV->present));
        }
        uint8_t bytes[64];
        const auto result = asn_encode_to_buffer(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_PositionOffsetLLV,
                                                 static_cast<PositionOffsetLLV_t*>(this), bytes, sizeof bytes);
        return text + (result.encoded < 0 ? " !" : "");
    }
};

TEST(Position, DifferencesInDegreesAndMetresSelectTheWidths) {
    const double nan = std::nan("");
    const std::string lowest = std::to_string(LOWEST);
    const std::string longest = std::to_string(LONGEST);
    // Of elevations a number and its double differ by exactly that number, in binary too.
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
        {{0.2097151, 0, 102.3}, {0, 0, 204.6}, "6: 2097150 0; 6: -1023"}, // likewise
        {{0, -0.83886065, 409.3}, {0, 0, 204.65}, "6: 0 -8388606; 6: 2046"},
        {{0, -0.8388607, 409.4}, {0, 0, 204.7}, "7: 0 -8388607; 7: 4094"},
        {{39.90625, -116.375, 204.7}, {39.90625, 116.5, 409.4}, "7: 399062500 -1163750000; 7: 2047"},
        {{0, 0, -0.0}, {0, 0, 5}, "1: 0 0"},
        {{0, 0, 5}, {0, 0, 0}, "1: 0 0"},
        {{0, 0, 6000.06}, {0, 0, -400}, "1: 0 0; 7: 60000"},
        {{0, 0, 0.05}, {0, 0, 0.0625}, "1: 0 0; 1: 0"}, // -0.0125 m
        {{nan, 0, nan}, {0, 0, 1}, "1: " + lowest + " 0; 7: " + lowest + " !"},
        {{0, nan, 0}, {0, 0, 1}, "7: 0 " + lowest + " !"},
        {{HUGE_VAL, -1e300, 1e300}, {0, 0, 1}, "7: " + longest + " " + lowest + "; 7: " + longest + " !"},
    };
    for (const auto& row : cases) {
        const c_pos3D_t here = {true, 0, row.here[0], row.here[1], false, row.here[2], {}};
        const c_pos3D_t from = {true, 0, row.from[0], row.from[1], false, row.from[2], {}};
        Offset offset;
        EXPECT_EQ(setPosOffsetLLV(&here, &from, &offset), 0);
        EXPECT_EQ(offset.shown(), row.offset);
    }
}

TEST(Position, WithoutMemoryTheOffsetHasNoElevation) {
    const c_pos3D_t here = {true, 0, 1, 1, true, 5, {}};
    Offset offset;
    no_memory::callocs.left = 1;
    EXPECT_EQ(setPosOffsetLLV(&here, &here, &offset), 0);
    EXPECT_EQ(offset.shown(), "1: 0 0");
    EXPECT_EQ(fakes::logged("calloc err").size(), 1U);
}

struct Place {
    long lat;
    long lon;
    std::optional<long> elevation;
};

Position3D_t positionAt(Place& place) {
    Position3D_t position = {};
    position.lat = place.lat;
    position.Long = place.lon;
    position.elevation = place.elevation.has_value() ? &*place.elevation : nullptr;
    return position;
}

TEST(Position, DifferencesInUnitsSelectTheWidths) {
    const std::string lowest = std::to_string(LOWEST);
    const std::string longest = std::to_string(LONGEST);
    struct Row {
        Place here;
        Place from;
        std::string offset;
    };
    Row cases[] = {
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
        {{LOWEST, 3, 10}, {LONGEST, 3, std::nullopt}, "7: " + lowest + " 3 !"},
        {{3, LONGEST, LOWEST}, {3, LOWEST, LONGEST}, "7: 3 " + longest + "; 7: " + lowest + " !"},
        {{0, LOWEST / 2, LONGEST}, {0, -(LOWEST / 2), LOWEST}, "7: 0 -4611686018427387904; 7: " + longest + " !"},
    };
    for (Row& row : cases) {
        const Position3D_t here = positionAt(row.here);
        const Position3D_t from = positionAt(row.from);
        Offset offset;
        EXPECT_EQ(setPosOffsetLLVOriginal(&here, &from, &offset), 0);
        EXPECT_EQ(offset.shown(), row.offset);
    }
}

TEST(Position, EveryWidthIsReadBackAndUnknownTagsLeaveTheResultAlone) {
    const c_pos3D_t origin = {true, 3, 40, 116, true, 50, {}};
    Place place = {400000000, 1160000000, 500};
    const Position3D_t reference = positionAt(place);
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

        Position3D_t current;
        memset(&current, 0xA5, sizeof current);
        current.lat = 1;
        current.Long = 2;
        EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
        EXPECT_EQ(current.lat, tag == 7 ? 2007 : isOffset ? 400002000 + tag : 1);
        EXPECT_EQ(current.Long, tag == 7 ? -1250 : isOffset ? 1159998750 : 2);
        ASSERT_NE(current.elevation, nullptr);
        EXPECT_EQ(*current.elevation, tag == 7 ? -67 : isOffset ? 440 - tag : 0);
        free(current.elevation);
    }
}

TEST(Position, WithoutAnElevationThereIsNone) {
    for (const bool hasOffset : {false, true}) {
        Offset offset(7, 0, 0, 100); // an absolute one, too, needs the reference's
        if (!hasOffset) {
            free(std::exchange(offset.offsetV, nullptr));
        }
        const c_pos3D_t origin = {true, 0, 40, 116, !hasOffset, 50, {}};
        c_pos3D_t out = {false, 0, 0, 0, true, 3, {}};
        EXPECT_EQ(prasePosOffsetLLV(&offset, &origin, &out), 0);
        EXPECT_FALSE(out.elevIsValid);
        EXPECT_EQ(out.elevation, 3);

        Place place = {0, 0, hasOffset ? std::nullopt : std::optional<long>(500)};
        const Position3D_t reference = positionAt(place);
        Position3D_t current;
        memset(&current, 0xA5, sizeof current);
        EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
        EXPECT_EQ(current.elevation, nullptr);
    }
}

TEST(Position, SumsInUnitsStopAtTheEnds) {
    const Offset offset(6, LOWEST, LONGEST, 1);
    Place place = {-1, 1, LONGEST};
    const Position3D_t reference = positionAt(place);
    Position3D_t current = {};
    EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
    EXPECT_EQ(current.lat, LOWEST);
    EXPECT_EQ(current.Long, LONGEST);
    ASSERT_NE(current.elevation, nullptr);
    EXPECT_EQ(*current.elevation, LONGEST);
    free(current.elevation);
}

TEST(Position, TheResultMayBeTheReferenceOrACopyOfIt) {
    const Offset offset(1, 0, 0, 5);
    Place place = {0, 0, 500};
    Position3D_t reference = positionAt(place);
    EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &reference), 0);
    EXPECT_EQ(reference.elevation, &*place.elevation);
    EXPECT_EQ(*place.elevation, 505);
    Position3D_t copy = reference; // both with one elevation
    EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &copy), 0);
    EXPECT_EQ(*copy.elevation, 510);
    EXPECT_EQ(*place.elevation, 505);
    free(copy.elevation);
}

TEST(Position, RawMessagePosition) {
    const c_pos3D_t origin = {true, 0, 40, 116, false, 50, {}};
    const struct {
        v2xapp_gbMsg_PosStr_t message;
        double lat;
        double lon;
        bool hasElevation;
        double elevation;
    } cases[] = {
        {{1, 2000, -1250, false, 0, 70}, 40.0002, 115.999875, false, 3},
        {{0, 2000, -1250, true, 6, 70}, 40.0002, 115.999875, true, 57},
        {{6, 2000, -1250, true, 7, -70}, 40.0002, 115.999875, true, -7},
        {{7, 399000000, -1163000000, true, 8, -70}, 39.9, -116.3, true, 43},
        {{8, 2000, -1250, true, 0, 0}, 40.0002, 115.999875, true, 50},
    };
    for (const auto& row : cases) {
        c_pos3D_t out = {false, 9, 1, 2, !row.hasElevation, 3, {}};
        EXPECT_EQ(v2xcodec_GBpraseMsgPos(&row.message, &origin, &out), 0);
        EXPECT_TRUE(out.posIsValid);
        EXPECT_DOUBLE_EQ(out.lat, row.lat);
        EXPECT_DOUBLE_EQ(out.lon, row.lon);
        EXPECT_EQ(out.elevIsValid, row.hasElevation);
        EXPECT_DOUBLE_EQ(out.elevation, row.elevation);
    }
}

TEST(Position, NullArguments) {
    const v2xapp_gbMsg_PosStr_t raw = {7, 1, 2, true, 7, 3};
    c_pos3D_t out = {};
    PositionOffsetLLV_t offset = {};
    Position3D_t current = {};
    const Position3D_t reference = {};
    const c_pos3D_t in = {};
    const struct {
        int32_t result;
        int32_t expected;
    } calls[] = {
        {v2xcodec_GBpraseMsgPos(nullptr, &in, &out), -1},
        {v2xcodec_GBpraseMsgPos(&raw, nullptr, &out), -1},
        {v2xcodec_GBpraseMsgPos(&raw, &in, nullptr), -1},
        {prasePosOffsetLLV(nullptr, &in, &out), -1},
        {prasePosOffsetLLV(&offset, nullptr, &out), -1},
        {prasePosOffsetLLV(&offset, &in, nullptr), -1},
        {prasePosOffsetLLVOriginal(nullptr, &reference, &current), -1},
        {prasePosOffsetLLVOriginal(&offset, nullptr, &current), -1},
        {prasePosOffsetLLVOriginal(&offset, &reference, nullptr), -1},
        {setPosOffsetLLV(nullptr, &in, &offset), -2},
        {setPosOffsetLLV(&in, nullptr, &offset), -2},
        {setPosOffsetLLV(&in, &in, nullptr), -2},
        {setPosOffsetLLVOriginal(nullptr, &reference, &offset), -2},
        {setPosOffsetLLVOriginal(&current, nullptr, &offset), -2},
        {setPosOffsetLLVOriginal(&current, &reference, nullptr), -2},
    };
    for (const auto& call : calls) {
        EXPECT_EQ(call.result, call.expected) << &call - calls;
    }
    EXPECT_EQ(fakes::logged("input param error").size(), 9U);
    EXPECT_EQ(fakes::logged("input para error").size(), 6U);
    EXPECT_FALSE(out.posIsValid);
    EXPECT_EQ(offset.offsetLL.present, 0);
}

} // namespace
