// Compares the tables of messages with the leaves of tests/data/uper, and checks values that no valid message has.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <regex>

#include "LightState.h"
#include "uper_frames.h"
#include "v2x_msg/codec.h"
#include "v2x_msg/describe.h"
#include "v2x_msg/value_text.h"

namespace {

// Describes a frame of a file, with two spaces between columns.
std::string Describe(const std::string& file, const std::string& name) {
    const std::vector<UperFrame> frames = uperFrames(V2X_TEST_DATA "/uper/" + file + ".txt");
    const auto frame = std::ranges::find(frames, name, &UperFrame::name);
    if (frame == frames.end()) {
        return "no such frame";
    }
    const msg::Decoded decoded = msg::DecodeFrame(frame->bytes);
    return std::regex_replace(msg::Describe(*decoded.message, frame->bytes.size()), std::regex(" {2,}"), "  ");
}

TEST(V2xMsgDescribe, ShowsTheValuesOfEachType) {
    const struct {
        const char* file;
        const char* frame;
        std::vector<const char*> lines;
    } cases[] = {
        {"captured",
         "vehicle",
         {"BSM, 49 bytes, msgCnt 35",
          "  3030313433313031  47.091  28.1260343,112.8799971  123.3  0.12  74.3000  1.80x5.00x-  54",
          "  reverseGears  22.5  0.05  0.00  0.00  off  -  -  -", "  events: none"}},
        {"bsm",
         "all_2",
         {"  reserved1  81.0  -14.96  -20.00  -166.47  on  on  on  on",
          "  events: eventStopLineViolation, eventStabilityControlactivated, eventLightsChanged, eventWipersChanged, "
          "eventFlatTire, eventDisabledVehicle, eventAirBagDeployment, bit 17, bit 21, bit 22, bit 26, bit 27, bit 28, "
          "bit 31, bit 33, bit 34, bit 37, bit 39",
          "  emergency: response nonEmergency, siren inUse, lights inUse"}},
        {"rsm",
         "any_2",
         {"id 1C0509A68A2D9FE5  position(deg) -90.0000000,-179.9999999  elevation(m) -",
          "  30486  non-motor  video  -  65.535  -90.8388608,-179.8768963  -  ?  314.9875  9.59x18.23x-  -"}},
        {"rsm",
         "any_3",
         {"  0  unknown  lidar  ABE62D39F9113F6C  36.694  79.3513008,14.8567799  6304.2  133.32  0.0000  10.23x40.95x? "
          " 0",
          "  65535  motor  integrated  3D20FCE0A976342F  0.000  79.3536227,14.8592375  -  0.00  ?  1.89x1.04x6.35  -"}},
        {"rsi",
         "any_4",
         {"moy 271795 (day 189, 17:55)  id 2DDA252B0E73FA0F  position(deg) -24.6215848,-125.0627297  elevation(m) ?",
          "  sign  138  65535  -  -  -  -  -  -  -  2E  2/2  -",
          "  sign  0  48452  -  -  -  -24.6216110,-125.0619106  ?  day 270, 02:55  -  -  3/0  -"}},
        {"rsi",
         "any_5",
         {"  event  166  5434  unknown  1120.5  -  -89.9987145,-179.9986229  -  -  invalid  63  1/0  -",
          R"(  sign  0  0  -  -  -  -89.7902849,-180.2097151  1706.9  -  -  -  3/0  "\x1F\xC1\xA5\xFD6\xFAh")"}},
        {"map",
         "any_3",
         {"node -/8838  position(deg) 87.4898312,-173.7813317  elevation(m) 5918.7  name \"tCS[#|0usD3\"",
          "link from 65535/16079  width(m) -  points 0  name \"U\"", "  limits(m/s): unknown 23.70",
          "  movements: -/0 phase 255, 52332/65535 phase 2",
          "  255  -  0.00  3  straight, rightTurnOnRed, reserved1  -/21717  -  39  -  maxSpeedInConstructionZone ?, "
          "vehicleMinSpeed 6.62, vehicleMaxSpeed 3.84",
          "  26412/36379  234  -  left, leftTurnOnRed, laneChange, noStopping, caution, reserved1",
          "  46  -  -  0  -  -  -  -  -  -"}},
        {"newer", "mapFrame_1", {"  84  unknown  -  0  -  -  -  -  -  -"}},
        {"msgFrameExt", "highest", {"extension, 11 bytes, messageId 32767, value of 6 bytes"}},
    };
    for (const auto& row : cases) {
        const std::string text = Describe(row.file, row.frame);
        for (const std::string line : row.lines) {
            EXPECT_THAT("\n" + text, testing::HasSubstr("\n" + line)) << row.file << " " << row.frame;
        }
    }
}

TEST(V2xMsgDescribe, ShowsOnlyPrintableText) {
    size_t count = 0;
    for (const char* const file : {"bsm", "captured", "map", "msgFrameExt", "newer", "rsi", "rsm", "spat"}) {
        for (const UperFrame& frame : uperFrames(std::string(V2X_TEST_DATA "/uper/") + file + ".txt")) {
            const msg::Decoded decoded = msg::DecodeFrame(frame.bytes);
            ASSERT_NE(decoded.message, nullptr) << frame.name;
            const std::string text = msg::Describe(*decoded.message, frame.bytes.size());
            EXPECT_TRUE(std::ranges::all_of(text, [](char c) {
                return static_cast<uint8_t>(c) >= ' ' ? c != '\x7F' : c == '\n';
            })) << text;
            EXPECT_EQ(text.back(), '\n');
            ++count;
        }
    }
    EXPECT_GT(count, 140U);
}

TEST(V2xMsgDescribe, ShowsValuesThatNoMessageHas) {
    const long light = 9;
    EXPECT_EQ(msg::FormatEnumerated(asn_DEF_LightState, &light), "9");
    const long minute = -1;
    EXPECT_EQ(msg::FormatMinute(&minute), "-1 (invalid)");
    PositionOffsetLLV_t offset{};
    EXPECT_EQ(msg::FormatPosition(&offset, {}).position, "-");
    offset.offsetLL.present = PositionOffsetLL_PR_position_LL6;
    EXPECT_EQ(msg::FormatPosition(&offset, {900000001, 1800000001, nullptr, {}}).position, "?,?");
    uint8_t octets[9] = {0, 0, 0, 0, 0, 0, 0, 1, 0x80};
    const BIT_STRING_t bits{octets, 9, 0, {}};
    EXPECT_EQ(msg::FormatBits(&bits, {}), "bit 63");
}

} // namespace
