#include <gtest/gtest.h>

#include <set>

#include "bytes.h"
#include "damage.h"
#include "frame_stream.h"
#include "light_damage.h"
#include "light_frame.h"
#include "plan.h"

using namespace sim;
using namespace std::chrono_literals;

namespace {

constexpr uint64_t TIME = 1732186138'683000; // 2024-11-21 10:48:58.683

const std::vector<PhaseLight> LIGHTS = {
    {1, Colour::green, 0xC0}, {2, Colour::red, 0xDB}, {3, Colour::yellow, 3}, {4, Colour::red, 4},
    {5, Colour::yellow, 5},   {6, Colour::red, 6},    {7, Colour::green, 7},  {8, Colour::red, 8},
};

// Header after the opening delimiter, up to the control type; the crossing from its length to the elevation.
const std::string HEAD = "C0 01 00 11 01 08 01 00 01 00 11 01 08 02 00 01 00 1A 10 3F 67 AB 02 01 01 ";
const std::string TYPE = "87 03 01 00 00 00 00 ";
const std::string PLACE = "00 AE C7 E8 42 23 DB DD 1F 42 DB DC 00 ";
const std::string START = HEAD + TYPE + "12 " + PLACE;
// One link, one group, and a CRC of C0DB.
const Bytes SMALL = hex(START + "01 00 00 01 01 01 20 1B DB DD DB DC C0");

// ---- frame

TEST(LightFrame, IsEncodedByteForByte) {
    std::vector<PhaseLight> first = LIGHTS;
    first[0].secondsLeft = 27;
    EXPECT_EQ(Enclose(WithCrc(EncodePayload(first, {1, 1}, TIME))), SMALL);
    // All arms, and the first again.
    EXPECT_EQ(Enclose(WithCrc(EncodePayload(LIGHTS, {5, 1}, TIME))),
              hex((HEAD + TYPE).append("2E ").append(PLACE) +
                  "05 00 00 01 01 01 20 DB DC 5A 00 01 02 01 02 DB DD B4 00 01 03 01 08 03 0E 01 01 04 01 02 04 "
                  "00 00 01 05 01 20 DB DC F8 76 C0"));
}

TEST(LightFrame, IsClassifiedWithinItsBytes) {
    EXPECT_EQ(ClassifyFrame(SMALL), FrameKind::good);
    EXPECT_EQ(ClassifyFrame(hex("C0 FF FF C0")), FrameKind::wrongLength); // right CRC of nothing
    for (size_t size = 0; size < SMALL.size(); ++size) { // exactly as large as it says, for the address sanitizer
        EXPECT_NE(ClassifyFrame(Bytes(SMALL.begin(), SMALL.begin() + static_cast<ptrdiff_t>(size))), FrameKind::good);
    }
}

// ---- damage

// What a receiver tells such a frame by. One with bytes missing or added, or with a wrong escape, has the wrong CRC
// too.
TEST(LightDamage, IsWhatItsKindSays) {
    const struct {
        FrameKind kind;
        std::set<FrameKind> read;
    } cases[] = {
        {FrameKind::wrongCrc, {FrameKind::wrongCrc}},
        {FrameKind::wrongLength, {FrameKind::wrongCrc}},
        {FrameKind::wrongDelimiter, {FrameKind::wrongDelimiter}},
        {FrameKind::wrongEscape, {FrameKind::wrongEscape, FrameKind::wrongDelimiter}},
        {FrameKind::wrongType, {FrameKind::wrongType}},
        {FrameKind::wrongCount, {FrameKind::wrongCount}},
    };
    // With this time the CRC stays right when the two bytes from 81 are missing, or when 7B follows the DB at 73:
    // ways that are not to be taken.
    const Bytes four = Enclose(WithCrc(EncodePayload(LIGHTS, {4, 5}, 1732186145'338000)));
    for (const auto& [kind, read] : cases) {
        for (const Bytes& good : {SMALL, four}) {
            std::set<FrameKind> seen;
            DamageShare randoms(1, 1, 1);
            for (int round = 0; round < 5000; ++round) {
                Bytes damaged = good;
                ASSERT_TRUE(DamageFrame(damaged, kind, randoms.Next()->random));
                seen.insert(ClassifyFrame(damaged));
            }
            EXPECT_EQ(seen, read) << "kind " << static_cast<size_t>(kind);
        }
    }
}

// ---- stream

TEST(FrameStream, KeepsTheBytesWhateverTheDatagrams) {
    const std::pair<StreamOptions, std::vector<size_t>> cases[] = {
        // options, and the datagrams of each load
        {{1, 1, 0}, std::vector<size_t>(11, 1)},
        {{8, 1, 0}, std::vector<size_t>(11, 8)},
        {{1, 4, 0}, {1, 1, 1}},
    };
    for (const auto& [options, datagramsOfLoads] : cases) {
        FrameStream stream(options, 5);
        std::vector<std::optional<Load>> loads;
        Bytes given;
        for (uint8_t number = 0; number < 11; ++number) {
            const Bytes frame = Enclose(WithCrc(EncodePayload(LIGHTS, {number, 5}, TIME)));
            given.insert(given.end(), frame.begin(), frame.end());
            loads.push_back(stream.Add(frame, FrameKind::good));
        }
        loads.push_back(stream.Rest());
        std::vector<size_t> datagrams;
        Bytes sent;
        for (const auto& load : loads) {
            if (load) {
                datagrams.push_back(load->datagrams.size());
                for (const Bytes& datagram : load->datagrams) {
                    sent.insert(sent.end(), datagram.begin(), datagram.end());
                }
            }
        }
        EXPECT_EQ(datagrams, datagramsOfLoads);
        EXPECT_EQ(sent, given);
    }
}

} // namespace
