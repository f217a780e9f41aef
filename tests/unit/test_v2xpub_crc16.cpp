#include <cstring>
#include <gtest/gtest.h>
#include <vector>

#include "v2x/v2xpub.h"

namespace {

uint16_t crcOf(uint16_t initial, uint16_t polynomial, const std::vector<uint8_t>& bytes) {
    uint16_t crc = 0;
    EXPECT_EQ(v2xpub_Crc16(initial, polynomial, bytes.data(), static_cast<uint32_t>(bytes.size()), &crc), 0);
    return crc;
}

TEST(Crc16, GivesThePublishedCheckValues) {
    const std::vector<uint8_t> check = {'1', '2', '3', '4', '5', '6', '7', '8', '9'};
    const struct {
        const char* name;
        uint16_t initial;
        uint16_t polynomial;
        uint16_t crc;
    } cases[] = {
        {"MODBUS", 0xFFFF, 0xA001, 0x4B37},
        {"ARC", 0x0000, 0xA001, 0xBB3D},
        {"KERMIT", 0x0000, 0x8408, 0x2189},
        {"MODBUS again", 0xFFFF, 0xA001, 0x4B37},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(crcOf(row.initial, row.polynomial, check), row.crc) << row.name;
    }
    EXPECT_EQ(crcOf(0x1234, 0xA001, {}), 0x1234);
}

TEST(Crc16, RefusesNull) {
    uint16_t crc = 0;
    const uint8_t byte = 0;
    EXPECT_EQ(v2xpub_Crc16(0, 0xA001, nullptr, 1, &crc), -2);
    EXPECT_EQ(v2xpub_Crc16(0, 0xA001, &byte, 1, nullptr), -2);
    EXPECT_EQ(v2xpub_Crc16(7, 0xA001, nullptr, 0, &crc), 0);
    EXPECT_EQ(crc, 7);
}

} // namespace
