#include <cmath>
#include <cstdlib>
#include <cstring>
#include <gtest/gtest.h>
#include <limits>
#include <optional>

#include "fakes.h"
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

// An offset and its members by tag.
class Position : public testing::Test {
protected:
    ~Position() override {
        ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_PositionOffsetLLV, &offset);
        ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_Position3D, &current);
        ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_Position3D, &reference);
    }
    long& lon(int tag) {
        auto& c = offset.offsetLL.choice;
        long* const members[] = {&c.position_LL1.lon, &c.position_LL2.lon, &c.position_LL3.lon,   &c.position_LL4.lon,
                                 &c.position_LL5.lon, &c.position_LL6.lon, &c.position_LatLon.lon};
        return *members[tag - 1];
    }
    long& lat(int tag) {
        auto& c = offset.offsetLL.choice;
        long* const members[] = {&c.position_LL1.lat, &c.position_LL2.lat, &c.position_LL3.lat,   &c.position_LL4.lat,
                                 &c.position_LL5.lat, &c.position_LL6.lat, &c.position_LatLon.lat};
        return *members[tag - 1];
    }
    long& vertical(int tag) {
        if (offset.offsetV == nullptr) {
            offset.offsetV = static_cast<VerticalOffset_t*>(calloc(1, sizeof(VerticalOffset_t)));
        }
        auto& c = offset.offsetV->choice;
        long* const members[] = {&c.offset1, &c.offset2, &c.offset3, &c.offset4, &c.offset5, &c.offset6, &c.elevation};
        return *members[tag - 1];
    }
    template <typename Choice>
    static void setTag(Choice& choice, int tag) {
        memcpy(&choice.present, &tag, sizeof tag); // also one that the enumeration cannot hold
    }
    int tagV() const { return offset.offsetV == nullptr ? 0 : offset.offsetV->present; }
    // Size of the encoding in bytes, -1 when a value is outside its width.
    ssize_t encoded() const {
        uint8_t bytes[64];
        return asn_encode_to_buffer(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_PositionOffsetLLV, &offset, bytes,
                                    sizeof bytes)
            .encoded;
    }
    static void setElevation(Position3D_t& position, std::optional<long> value) {
        free(position.elevation);
        position.elevation = nullptr;
        if (value.has_value()) {
            position.elevation = static_cast<Elevation_t*>(malloc(sizeof(Elevation_t)));
            *position.elevation = *value;
        }
    }

    // Outputs are not looked at: they hold anything.
    void freshOffset() {
        ASN_STRUCT_FREE_CONTENTS_ONLY(asn_DEF_PositionOffsetLLV, &offset);
        memset(&offset, 0xA5, sizeof offset);
    }
    void freshCurrent() {
        free(current.elevation);
        memset(&current.elevation, 0xA5, sizeof current.elevation);
    }

    PositionOffsetLLV_t offset = {};
    Position3D_t current = {};
    Position3D_t reference = {};
};

TEST_F(Position, HorizontalDifferenceInDegreesSelectsTheWidth) {
    const struct {
        double lat;
        double lon;
        int tag;
        long units[2]; // lat, lon
    } cases[] = {
        {0.00020465, -0.0001, 1, {2046, -1000}},
        {0.0002047, -0.0001, 2, {2046, -1000}}, // in binary the product stays below 2047
        {-0.0001, -0.00081905, 2, {-1000, -8190}},
        {-0.0001, -0.0008191, 3, {-1000, -8191}},
        {0.0001, 0.00327665, 3, {1000, 32766}},
        {0.0001, 0.0032767, 4, {1000, 32767}},
        {-0.01310705, 0.0001, 4, {-131070, 1000}},
        {-0.0131071, 0.0001, 5, {-131071, 1000}},
        {0.20971505, 0, 5, {2097150, 0}},
        {0.2097151, 0, 6, {2097150, 0}}, // likewise
        {0, -0.83886065, 6, {0, -8388606}},
        {0, -0.8388607, 7, {0, -8388607}},
    };
    for (const auto& row : cases) {
        const c_pos3D_t position = {true, 0, row.lat, row.lon, false, 0, {}};
        const c_pos3D_t origin = {};
        freshOffset();
        EXPECT_EQ(setPosOffsetLLV(&position, &origin, &offset), 0);
        ASSERT_EQ(offset.offsetLL.present, row.tag) << row.lat << " " << row.lon;
        EXPECT_EQ(lat(row.tag), row.units[0]) << row.lat;
        EXPECT_EQ(lon(row.tag), row.units[1]) << row.lon;
        EXPECT_EQ(offset.offsetV, nullptr);
        EXPECT_GT(encoded(), 0) << row.tag;
    }
}

TEST_F(Position, AbsolutePositionIsTheCurrentOne) {
    const c_pos3D_t position = {true, 0, 39.90625, -116.375, false, 0, {}};
    const c_pos3D_t far = {true, 0, 39.90625, 116.5, false, 0, {}};
    freshOffset();
    EXPECT_EQ(setPosOffsetLLV(&position, &far, &offset), 0);
    ASSERT_EQ(offset.offsetLL.present, 7);
    EXPECT_EQ(lat(7), 399062500);
    EXPECT_EQ(lon(7), -1163750000);
}

TEST_F(Position, VerticalDifferenceInMetresSelectsTheWidth) {
    // A number and its double differ by exactly that number, in binary too.
    const struct {
        double current;
        double reference;
        int tag;
        long value;
    } cases[] = {
        {6.25, 12.5, 1, -62},
        {6.3, 12.6, 2, -63},
        {25.3, 12.65, 2, 126},
        {25.4, 12.7, 3, 127},
        {25.45, 50.9, 3, -254},
        {25.5, 51, 4, -255},
        {102.1, 51.05, 4, 510},
        {102.2, 51.1, 5, 511},
        {102.25, 204.5, 5, -1022},
        {102.3, 204.6, 6, -1023},
        {409.3, 204.65, 6, 2046},
        {409.4, 204.7, 7, 4094},
        {204.7, 409.4, 7, 2047},
        {0, 5, 0, 0},
        {5, 0, 0, 0},
        {-0.0, 5, 0, 0},
        {6000.06, -400, 7, 60000},
        {0.05, 0.0625, 1, 0}, // -0.0125 m
    };
    for (const auto& row : cases) {
        const c_pos3D_t position = {true, 0, 0, 0, false, row.current, {}};
        const c_pos3D_t origin = {true, 0, 0, 0, false, row.reference, {}};
        freshOffset();
        EXPECT_EQ(setPosOffsetLLV(&position, &origin, &offset), 0);
        ASSERT_EQ(tagV(), row.tag) << row.current << " " << row.reference;
        if (row.tag != 0) {
            EXPECT_EQ(vertical(row.tag), row.value) << row.current << " " << row.reference;
        }
        EXPECT_GT(encoded(), 0) << row.tag;
    }
}

TEST_F(Position, WhatIsNoNumberOrTooLargeDoesNotEncode) {
    const double nan = std::nan("");
    const struct {
        c_pos3D_t position;
        int tags[2]; // horizontal, vertical
        long value[3];
    } cases[] = {
        {{true, 0, nan, 0, false, 0, {}}, {1, 0}, {LOWEST, 0, 0}},
        {{true, 0, 0, nan, false, 0, {}}, {7, 0}, {0, LOWEST, 0}},
        {{true, 0, HUGE_VAL, -1e300, false, 0, {}}, {7, 0}, {LONGEST, LOWEST, 0}},
        {{true, 0, 0, 0, false, nan, {}}, {1, 7}, {0, 0, LOWEST}},
        {{true, 0, 0, 0, false, 1e300, {}}, {1, 7}, {0, 0, LONGEST}},
    };
    const c_pos3D_t origin = {true, 0, 0, 0, false, 1, {}};
    for (const auto& row : cases) {
        freshOffset();
        EXPECT_EQ(setPosOffsetLLV(&row.position, &origin, &offset), 0);
        ASSERT_EQ(offset.offsetLL.present, row.tags[0]);
        EXPECT_EQ(lat(row.tags[0]), row.value[0]);
        EXPECT_EQ(lon(row.tags[0]), row.value[1]);
        ASSERT_EQ(tagV(), row.tags[1]);
        if (row.tags[1] != 0) {
            EXPECT_EQ(vertical(row.tags[1]), row.value[2]);
        }
        EXPECT_EQ(encoded(), -1);
    }
}

TEST_F(Position, HorizontalDifferenceInUnitsSelectsTheWidth) {
    const struct {
        long current[2]; // lat, Long
        long reference[2];
        int tag;
        long value[2];
    } cases[] = {
        {{399002047, 1163000000}, {399000000, 1163000001}, 1, {2047, -1}},
        {{399002048, 1163000000}, {399000000, 1163000001}, 2, {2048, -1}},
        {{10, 0}, {0, 8191}, 2, {10, -8191}},
        {{10, 0}, {0, 8192}, 3, {10, -8192}},
        {{0, 32767}, {10, 0}, 3, {-10, 32767}},
        {{0, 32768}, {10, 0}, 4, {-10, 32768}},
        {{0, 0}, {131071, 131071}, 4, {-131071, -131071}},
        {{0, 0}, {131072, 131071}, 5, {-131072, -131071}},
        {{2097151, 0}, {0, 0}, 5, {2097151, 0}},
        {{2097152, 0}, {0, 0}, 6, {2097152, 0}},
        {{0, 8388607}, {0, 0}, 6, {0, 8388607}},
        {{0, 8388608}, {0, 0}, 7, {0, 8388608}},
        {{5, 0}, {5, 8388608}, 7, {5, 0}},
        {{LOWEST, 3}, {LONGEST, 3}, 7, {LOWEST, 3}},
        {{3, LONGEST}, {3, LOWEST}, 7, {3, LONGEST}},
        {{0, -1 - LONGEST / 2}, {0, LONGEST / 2 + 1}, 7, {0, -1 - LONGEST / 2}}, // 2^63 apart
    };
    for (const auto& row : cases) {
        current.lat = row.current[0];
        current.Long = row.current[1];
        reference.lat = row.reference[0];
        reference.Long = row.reference[1];
        freshOffset();
        EXPECT_EQ(setPosOffsetLLVOriginal(&current, &reference, &offset), 0);
        ASSERT_EQ(offset.offsetLL.present, row.tag) << row.current[0] << " " << row.current[1];
        EXPECT_EQ(lat(row.tag), row.value[0]) << row.current[0];
        EXPECT_EQ(lon(row.tag), row.value[1]) << row.current[1];
        EXPECT_EQ(offset.offsetV, nullptr);
    }
}

TEST_F(Position, VerticalDifferenceInUnitsSelectsTheWidth) {
    const struct {
        std::optional<long> current;
        std::optional<long> reference;
        int tag;
        long value;
    } cases[] = {
        {1062, 1000, 1, 62},
        {1063, 1000, 2, 63},
        {0, 126, 2, -126},
        {0, 127, 3, -127},
        {354, 100, 3, 254},
        {355, 100, 4, 255},
        {-510, 0, 4, -510},
        {-511, 0, 5, -511},
        {1022, 0, 5, 1022},
        {1023, 0, 6, 1023},
        {3046, 1000, 6, 2046},
        {3047, 1000, 7, 3047},
        {std::nullopt, 10, 0, 0},
        {10, std::nullopt, 0, 0},
        {LOWEST, LONGEST, 7, LOWEST},
        {LONGEST, LOWEST, 7, LONGEST},
    };
    for (const auto& row : cases) {
        setElevation(current, row.current);
        setElevation(reference, row.reference);
        freshOffset();
        EXPECT_EQ(setPosOffsetLLVOriginal(&current, &reference, &offset), 0);
        ASSERT_EQ(tagV(), row.tag) << row.current.value_or(-1);
        if (row.tag != 0) {
            EXPECT_EQ(vertical(row.tag), row.value) << row.value;
        }
    }
}

TEST_F(Position, EveryWidthIsReadBack) {
    const c_pos3D_t origin = {true, 3, 40, 116, true, 50, {}};
    reference.lat = 400000000;
    reference.Long = 1160000000;
    setElevation(reference, 500);
    for (int tag = 1; tag <= 7; tag++) {
        setTag(offset.offsetLL, tag);
        lon(tag) = -1250;
        lat(tag) = 2000 + tag;
        vertical(tag) = -60 - tag;
        setTag(*offset.offsetV, tag);
        const bool absolute = tag == 7;

        c_pos3D_t out = {false, 9, 1, 2, false, 3, {4, 5}};
        EXPECT_EQ(prasePosOffsetLLV(&offset, &origin, &out), 0);
        EXPECT_TRUE(out.posIsValid && out.elevIsValid);
        EXPECT_DOUBLE_EQ(out.lon, absolute ? -0.000125 : 115.999875) << tag;
        EXPECT_DOUBLE_EQ(out.lat, (absolute ? 0 : 40) + 0.0002 + 0.0000001 * tag) << tag;
        EXPECT_DOUBLE_EQ(out.elevation, absolute ? -6.7 : 44 - 0.1 * tag) << tag;
        EXPECT_EQ(out.m_pos3DSrc, 9);
        EXPECT_EQ(out.m_posToXY.x + out.m_posToXY.y, 9);

        freshCurrent();
        EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
        EXPECT_EQ(current.Long, absolute ? -1250 : 1159998750);
        EXPECT_EQ(current.lat, absolute ? 2007 : 400002000 + tag);
        ASSERT_NE(current.elevation, nullptr);
        EXPECT_EQ(*current.elevation, absolute ? -67 : 440 - tag);
    }
}

TEST_F(Position, UnknownTagsLeaveTheResultAlone) {
    const c_pos3D_t origin = {true, 0, 40, 116, true, 50, {}};
    setElevation(reference, 500);
    for (const int tag : {0, 8, -1}) {
        vertical(1) = 5;
        setTag(offset.offsetLL, tag);
        setTag(*offset.offsetV, tag);
        c_pos3D_t out = {false, 0, 1, 2, false, 3, {}};
        EXPECT_EQ(prasePosOffsetLLV(&offset, &origin, &out), 0);
        EXPECT_TRUE(out.posIsValid && out.elevIsValid);
        EXPECT_EQ(out.lat, 1);
        EXPECT_EQ(out.lon, 2);
        EXPECT_EQ(out.elevation, 3);

        current.lat = 1;
        current.Long = 2;
        setElevation(current, 3);
        freshCurrent();
        EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
        EXPECT_EQ(current.lat, 1);
        EXPECT_EQ(current.Long, 2);
        ASSERT_NE(current.elevation, nullptr);
        EXPECT_EQ(*current.elevation, 0);
        setTag(offset.offsetLL, 0);
        setTag(*offset.offsetV, 0);
    }
}

TEST_F(Position, WithoutAnElevationThereIsNone) {
    for (const bool hasOffset : {false, true}) {
        if (hasOffset) {
            vertical(7) = 100; // an absolute one, too, needs the reference's
            setTag(*offset.offsetV, 7);
        }
        const c_pos3D_t origin = {true, 0, 40, 116, !hasOffset, 50, {}};
        c_pos3D_t out = {false, 0, 0, 0, true, 3, {}};
        EXPECT_EQ(prasePosOffsetLLV(&offset, &origin, &out), 0);
        EXPECT_FALSE(out.elevIsValid);
        EXPECT_EQ(out.elevation, 3);

        setElevation(reference, hasOffset ? std::nullopt : std::optional<long>(500));
        setElevation(current, 3);
        freshCurrent();
        EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
        EXPECT_EQ(current.elevation, nullptr);
    }
}

TEST_F(Position, SumsInUnitsStopAtTheEnds) {
    setTag(offset.offsetLL, 6);
    lon(6) = LONGEST;
    lat(6) = LOWEST;
    vertical(6) = 1;
    setTag(*offset.offsetV, 6);
    reference.Long = 1;
    reference.lat = -1;
    setElevation(reference, LONGEST);
    freshCurrent();
    EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
    EXPECT_EQ(current.Long, LONGEST);
    EXPECT_EQ(current.lat, LOWEST);
    ASSERT_NE(current.elevation, nullptr);
    EXPECT_EQ(*current.elevation, LONGEST);
}

TEST_F(Position, TheResultMayBeTheReferenceOrACopyOfIt) {
    setTag(offset.offsetLL, 1);
    vertical(1) = 5;
    setTag(*offset.offsetV, 1);
    setElevation(reference, 500);
    EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &reference), 0);
    EXPECT_EQ(*reference.elevation, 505);
    current = reference; // both with one elevation
    EXPECT_EQ(prasePosOffsetLLVOriginal(&offset, &reference, &current), 0);
    EXPECT_EQ(*current.elevation, 510);
    EXPECT_EQ(*reference.elevation, 505);
}

TEST_F(Position, RawMessagePosition) {
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

TEST_F(Position, NullArguments) {
    const v2xapp_gbMsg_PosStr_t raw = {7, 1, 2, true, 7, 3};
    c_pos3D_t out = {};
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
