#include <gtest/gtest.h>

#include "v2x/v2xpub.h"

namespace {

TEST(Crc16, GivesThePublishedCheckValuesAndRefusesNull) {
    const uint8_t check[] = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    const struct {
        const char* name;
        uint16_t initial;
        uint16_t polynomial;
        const uint8_t* bytes;
        uint32_t length;
        int32_t result;
        uint16_t crc;
    } cases[] = {
        {"MODBUS", 0xFFFF, 0xA001, check, 9, 0, 0x4B37}, {"ARC", 0x0000, 0xA001, check, 9, 0, 0xBB3D},
        {"KERMIT", 0x0000, 0x8408, check, 9, 0, 0x2189}, {"of nothing", 0x1234, 0xA001, nullptr, 0, 0, 0x1234},
        {"null", 0, 0xA001, nullptr, 1, -2, 7},
    };
    for (const auto& row : cases) {
        uint16_t crc = 7;
        EXPECT_EQ(v2xpub_Crc16(row.initial, row.polynomial, row.bytes, row.length, &crc), row.result) << row.name;
        EXPECT_EQ(crc, row.crc) << row.name;
    }
    EXPECT_EQ(v2xpub_Crc16(0, 0xA001, check, 1, nullptr), -2);
}

} // namespace
