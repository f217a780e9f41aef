#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <set>

#include "bytes.h"
#include "damage.h"
#include "frame_stream.h"
#include "light_damage.h"
#include "light_frame.h"
#include "plan.h"
#include "replay.h"

using namespace sim;
using namespace std::chrono_literals;
using testing::ElementsAre;

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
    const struct {
        FrameShape shape;
        std::string length;
        std::string links;
    } cases[] = {
        {{0, 5}, "0B ", "00 30 03 C0"},
        {{1, 6}, // all lamp types from the north, and the first again
         "26 ",
         "01 00 00 06 01 01 20 DB DC 02 02 08 05 03 03 20 DB DC 04 08 20 DB DC 05 09 20 DB DC 06 01 20 DB DC 46 2A C0"},
        {{5, 1}, // all arms, and the first again
         "2E ",
         "05 00 00 01 01 01 20 DB DC 5A 00 01 02 01 02 DB DD B4 00 01 03 01 08 03 0E 01 01 04 01 02 04 "
         "00 00 01 05 01 20 DB DC F8 76 C0"},
    };
    for (const auto& [shape, length, links] : cases) {
        const std::string frame = (HEAD + TYPE).append(length).append(PLACE).append(links);
        EXPECT_EQ(Enclose(WithCrc(EncodePayload(LIGHTS, shape, TIME))), hex(frame));
    }
    const Bytes most = EncodePayload(LIGHTS, {12, 12}, TIME);
    EXPECT_EQ(most.size(), 656U);
    EXPECT_EQ(most[31] | most[32] << 8, 623);
    EXPECT_EQ(most[652], 144); // id of the last group
}

TEST(LightFrame, HasTheCrcOfModbus) {
    EXPECT_EQ(Crc16(hex("31 32 33 34 35 36 37 38 39")), 0x4B37);
    EXPECT_EQ(Crc16({}), 0xFFFF);
}

TEST(LightFrame, EscapesAndBack) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "C0 C0"},
        {"41", "C0 41 C0"},
        {"C0", "C0 DB DC C0"},
        {"DB", "C0 DB DD C0"},
        {"DC DD", "C0 DC DD C0"},
        {"DB DC", "C0 DB DD DC C0"},
        {"DB DD C0 C0 DB", "C0 DB DD DD DB DC DB DC DB DD C0"},
    };
    for (const auto& [body, frame] : cases) {
        EXPECT_EQ(Enclose(hex(body)), hex(frame));
        const auto opened = OpenFrame(hex(frame));
        ASSERT_TRUE(opened) << frame;
        EXPECT_EQ(opened->body, hex(body));
        EXPECT_TRUE(opened->isWellEscaped);
    }
    const auto opened = OpenFrame(hex("C0 DB 41 DB DB DC DB C0")); // as a tolerant receiver reads it
    EXPECT_EQ(opened->body, hex("DB 41 DB C0 DB"));
    EXPECT_FALSE(opened->isWellEscaped);
}

TEST(LightFrame, IsClassified) {
    const std::pair<std::string, FrameKind> cases[] = {
        {START + "01 00 00 01 01 01 20 1B DB DD DB DC C0", FrameKind::good},
        {START + "01 00 00 01 01 01 20 1B 00 80 5B C0", FrameKind::good}, // more than its links
        {START + "00 00 00 01 01 01 20 1B 1A 0C C0", FrameKind::good},
        {START + "01 00 00 01 01 01 20 1B DB DC DB DD C0", FrameKind::wrongCrc}, // high byte first
        {START + "01 00 00 01 01 01 20 1B DB C0", FrameKind::wrongEscape},
        {START + "01 00 00 01 01 01 20 1B DB 41 DB DC C0", FrameKind::wrongEscape},
        {START + "01 00 00 01 01 01 20 1B DB DD C0 C0", FrameKind::wrongDelimiter},
        {START + "01 00 00 01 01 01 20 1B DB DD DB DC", FrameKind::wrongDelimiter},
        {"00 " + START + "01 00 00 01 01 01 20 1B DB DD DB DC C0", FrameKind::wrongDelimiter},
        {"", FrameKind::wrongDelimiter},
        {"C0", FrameKind::wrongDelimiter},
        {"C0 C0", FrameKind::wrongCrc},
        {"C0 FF C0", FrameKind::wrongCrc},
        {"C0 FF FF C0", FrameKind::wrongLength}, // right CRC of nothing
        {HEAD + TYPE + "F5 B5 C0", FrameKind::wrongLength},
        {START + "D8 13 C0", FrameKind::wrongLength},
        {HEAD + "86 03 01 00 00 00 00 12 " + PLACE + "01 00 00 01 01 01 20 1B 25 42 C0", FrameKind::wrongType},
        {HEAD + "87 01 03 00 00 00 00 12 " + PLACE + "01 00 00 01 01 01 20 1B 83 CD C0", FrameKind::wrongType},
        {START + "02 00 00 01 01 01 20 1B 9B D5 C0", FrameKind::wrongCount},
        {START + "01 00 00 02 01 01 20 1B 9F DB DC C0", FrameKind::wrongCount},
    };
    for (const auto& [digits, kind] : cases) {
        EXPECT_EQ(ClassifyFrame(hex(digits)), kind) << digits;
    }
    for (size_t size = 0; size < SMALL.size(); ++size) { // exactly as large as it says, for the address sanitizer
        EXPECT_NE(ClassifyFrame(Bytes(SMALL.begin(), SMALL.begin() + static_cast<ptrdiff_t>(size))), FrameKind::good);
    }
}

// ---- damage

// How a damaged frame differs from the good one, or "" for a way that its kind does not allow.
using Way = std::string (*)(const Bytes& good, const Bytes& damaged);

Bytes Payload(const Bytes& frame) {
    const Bytes body = OpenFrame(frame).value().body;
    return {body.begin(), body.end() - 2};
}

size_t FirstDifference(const Bytes& a, const Bytes& b) {
    return static_cast<size_t>(std::ranges::mismatch(a, b).in1 - a.begin());
}

// One run of bytes taken out of `longer` gives `shorter`.
bool IsCutFrom(Bytes longer, const Bytes& shorter) {
    const auto from = longer.begin() + static_cast<ptrdiff_t>(FirstDifference(longer, shorter));
    longer.erase(from, from + static_cast<ptrdiff_t>(longer.size() - shorter.size()));
    return longer == shorter;
}

std::string CrcWay(const Bytes& good, const Bytes& damaged) {
    return Payload(damaged) == Payload(good) && !OpenFrame(damaged)->isCrcRight ? "CRC" : "";
}

std::string LengthWay(const Bytes& good, const Bytes& damaged) {
    const Bytes before = OpenFrame(good)->body;
    const Bytes after = OpenFrame(damaged).value().body;
    const bool isShorter = after.size() < before.size();
    const size_t off = isShorter ? before.size() - after.size() : after.size() - before.size();
    const bool isFit = off >= 1 && off <= 8 && !OpenFrame(damaged)->isCrcRight &&
                       std::equal(before.end() - 2, before.end(), after.end() - 2) &&
                       IsCutFrom(isShorter ? before : after, isShorter ? after : before);
    return !isFit ? "" : isShorter ? "missing" : "added";
}

std::string DelimiterWay(const Bytes& good, const Bytes& damaged) {
    if (damaged == Bytes(good.begin() + 1, good.end())) {
        return "no opening";
    }
    if (damaged == Bytes(good.begin(), good.end() - 1)) {
        return "no closing";
    }
    const auto stray = std::find(damaged.begin() + 1, damaged.end() - 1, 0xC0);
    const bool isFit = stray > damaged.begin() + 1 && stray < damaged.end() - 2 && IsCutFrom(damaged, good);
    return isFit ? "stray" : "";
}

std::string EscapeWay(const Bytes& good, const Bytes& damaged) {
    const size_t at = FirstDifference(good, damaged);
    Bytes mended = damaged;
    if (damaged[at] == 0xC0 && good[at] == 0xDB && good[at + 1] == 0xDC) {
        mended[at] = 0xDC;
        mended.insert(mended.begin() + static_cast<ptrdiff_t>(at), 0xDB);
        return mended == good ? "not escaped" : "";
    }
    mended[at] = good[at];
    const bool isFit = mended == good && good[at - 1] == 0xDB && damaged[at] != 0xC0 && damaged[at] != 0xDC &&
                       damaged[at] != 0xDD && !OpenFrame(damaged).value().isCrcRight;
    return isFit ? "wrong byte" : "";
}

// The one byte of the payload that differs, the CRC being right.
std::string ByteWay(const Bytes& good, const Bytes& damaged) {
    const Bytes before = Payload(good);
    Bytes after = Payload(damaged);
    const size_t at = FirstDifference(before, after);
    after.at(at) = before[at];
    return after == before && OpenFrame(damaged)->isCrcRight ? std::to_string(at) : "";
}

std::string CountWay(const Bytes& good, const Bytes& damaged) {
    const Bytes payload = Payload(damaged);
    const std::string way = ByteWay(good, damaged);
    size_t need = 44;
    for (unsigned link = 0; link < payload[43] && need <= payload.size(); ++link) {
        need += 3 + (need + 2 < payload.size() ? payload[need + 2] * size_t{4} : 0);
    }
    return need > payload.size() ? way : "";
}

TEST(LightDamage, IsWhatItsKindSays) {
    const struct {
        FrameKind kind;
        Way way;
        std::set<std::string> ways; // in the small frame
        std::set<std::string> waysOfFour;
    } cases[] = {
        {FrameKind::wrongCrc, CrcWay, {"CRC"}, {"CRC"}},
        {FrameKind::wrongLength, LengthWay, {"missing", "added"}, {"missing", "added"}},
        {FrameKind::wrongDelimiter,
         DelimiterWay,
         {"no opening", "no closing", "stray"},
         {"no opening", "no closing", "stray"}},
        {FrameKind::wrongEscape, EscapeWay, {"wrong byte", "not escaped"}, {"wrong byte", "not escaped"}},
        {FrameKind::wrongType, ByteWay, {"24", "25", "26"}, {"24", "25", "26"}},
        {FrameKind::wrongCount, CountWay, {"43", "46"}, {"43", "46", "69", "92", "115"}},
    };
    // With this time the CRC stays right when the two bytes from 81 are missing, or when 7B follows the DB at 73:
    // ways that are not to be taken.
    const Bytes four = Enclose(WithCrc(EncodePayload(LIGHTS, {4, 5}, 1732186145'338000)));
    for (const auto& [kind, way, ways, waysOfFour] : cases) {
        for (const Bytes& good : {SMALL, four}) {
            std::set<std::string> seen;
            std::set<Bytes> frames;
            DamageShare randoms(1, 1, 1);
            for (int round = 0; round < 5000; ++round) {
                const uint32_t random = randoms.Next()->random;
                Bytes damaged = good;
                ASSERT_TRUE(DamageFrame(damaged, kind, random));
                const std::string what = way(good, damaged);
                ASSERT_NE(what, "") << "kind " << static_cast<size_t>(kind) << ", random " << random;
                seen.insert(what);
                frames.insert(damaged);
            }
            EXPECT_EQ(seen, good == SMALL ? ways : waysOfFour) << "kind " << static_cast<size_t>(kind);
            EXPECT_GE(frames.size(), 16U) << "kind " << static_cast<size_t>(kind);
        }
    }
}

TEST(LightDamage, LeavesAloneWhatItCannotDamage) {
    const std::pair<std::string, FrameKind> cases[] = {
        {START + "01 00 00 01 01 01 20 1B DB DD DB DC C0", FrameKind::good},
        {START + "01 00 00 01 01 01 20 1B DB DC DB DD C0", FrameKind::wrongType}, // damaged already
        {"C0", FrameKind::wrongDelimiter},
        {"", FrameKind::wrongCrc},
        {"C0 01 00 11 01 08 01 00 01 00 11 01 08 02 00 01 00 00 10 3F 67 AB 02 01 01 87 03 01 00 00 00 00 "
         "12 00 AE C7 E8 42 0A D7 1F 42 0A 00 01 00 00 01 01 01 20 1B 24 3A C0",
         FrameKind::wrongEscape}, // nothing to escape in it
    };
    for (const auto& [digits, kind] : cases) {
        Bytes frame = hex(digits);
        EXPECT_FALSE(DamageFrame(frame, kind, 4711)) << digits;
        EXPECT_EQ(frame, hex(digits));
    }
    // More than a raised count could lay claim to: only the links are many, and at their end.
    Bytes payload = EncodePayload(LIGHTS, {0, 0}, TIME);
    payload.resize(payload.size() + 7 * size_t{255});
    Bytes rest = Enclose(WithCrc(payload));
    EXPECT_EQ(ClassifyFrame(rest), FrameKind::good);
    EXPECT_FALSE(DamageFrame(rest, FrameKind::wrongCount, 4711));
}

// ---- stream

Bytes Joined(const std::vector<Bytes>& parts) {
    Bytes all;
    for (const Bytes& part : parts) {
        all.insert(all.end(), part.begin(), part.end());
    }
    return all;
}

std::vector<Bytes> TestFrames(size_t count) {
    std::vector<Bytes> frames;
    for (size_t number = 0; number < count; ++number) {
        frames.push_back(
            Enclose(WithCrc(EncodePayload(LIGHTS, {static_cast<uint8_t>(number % 13), 5}, TIME + number * 1000))));
    }
    return frames;
}

struct Sent {
    std::vector<size_t> framesOfLoads;
    std::vector<size_t> datagramsOfLoads;
    std::vector<Bytes> datagrams;
    size_t withGarbage = 0;
};

Sent SendAll(const StreamOptions& options, const std::vector<Bytes>& frames, uint32_t seed) {
    FrameStream stream(options, seed);
    Sent sent;
    const auto take = [&sent](const std::optional<Load>& load) {
        if (load) {
            sent.framesOfLoads.push_back(load->frames.size());
            sent.datagramsOfLoads.push_back(load->datagrams.size());
            sent.datagrams.insert(sent.datagrams.end(), load->datagrams.begin(), load->datagrams.end());
            sent.withGarbage += static_cast<size_t>(std::ranges::count(load->frames, true, &Load::Frame::hasGarbage));
        }
    };
    for (const Bytes& frame : frames) {
        take(stream.Add(frame, FrameKind::good));
    }
    take(stream.Rest());
    EXPECT_FALSE(stream.Rest());
    return sent;
}

TEST(FrameStream, KeepsTheBytesWhateverTheDatagrams) {
    const std::vector<Bytes> frames = TestFrames(11);
    const struct {
        StreamOptions options;
        std::vector<size_t> framesOfLoads;
        size_t datagramsOfLoad;
    } cases[] = {
        {{1, 1, 0}, std::vector<size_t>(11, 1), 1},
        {{8, 1, 0}, std::vector<size_t>(11, 1), 8},
        {{1, 4, 0}, {4, 4, 3}, 1},
    };
    for (const auto& [options, framesOfLoads, datagramsOfLoad] : cases) {
        const Sent sent = SendAll(options, frames, 5);
        EXPECT_EQ(Joined(sent.datagrams), Joined(frames));
        EXPECT_EQ(sent.framesOfLoads, framesOfLoads);
        EXPECT_THAT(sent.datagramsOfLoads, testing::Each(datagramsOfLoad));
        EXPECT_THAT(sent.datagrams, testing::Each(testing::SizeIs(testing::Ge(1U))));
    }
    EXPECT_THAT(SendAll({8, 1, 0}, {{1, 2, 3}}, 5).datagrams, ElementsAre(Bytes{1}, Bytes{2}, Bytes{3}));
    const Sent large = SendAll({1, 8, 0}, std::vector<Bytes>(5, Bytes(15000, 7)), 5);
    EXPECT_THAT(large.framesOfLoads, ElementsAre(2, 2, 1));
    EXPECT_EQ(large.datagrams[0].size(), 30000U);
}

TEST(FrameStream, PutsGarbageBeforeTheShareOfFrames) {
    const std::vector<Bytes> frames = TestFrames(1000);
    for (const StreamOptions options : {StreamOptions{1, 1, 0.25}, StreamOptions{3, 1, 1}, StreamOptions{1, 8, 0.5}}) {
        const Sent sent = SendAll(options, frames, 99);
        const Bytes all = Joined(sent.datagrams);
        EXPECT_EQ(all, Joined(SendAll(options, frames, 99).datagrams));
        EXPECT_NE(all, Joined(SendAll(options, frames, 100).datagrams));
        auto at = all.begin();
        size_t withGarbage = 0;
        std::set<ptrdiff_t> lengths;
        for (const Bytes& frame : frames) {
            const auto opening = std::find(at, all.end(), 0xC0);
            withGarbage += opening != at ? 1 : 0;
            lengths.insert(opening - at);
            ASSERT_LE(frame.size(), static_cast<size_t>(all.end() - opening));
            ASSERT_TRUE(std::equal(frame.begin(), frame.end(), opening));
            at = opening + static_cast<ptrdiff_t>(frame.size());
        }
        EXPECT_EQ(at, all.end());
        EXPECT_EQ(withGarbage, sent.withGarbage);
        EXPECT_NEAR(static_cast<double>(withGarbage), 1000 * options.garbage, 60);
        EXPECT_GT(lengths.size(), 60U);
        EXPECT_EQ(*lengths.rbegin(), 64);
    }
}

TEST(FrameCount, CountsGoodFramesThatDamageMayCut) {
    const Bytes stray = hex("C0 01 C0 02 C0");
    const struct {
        Bytes frame;
        FrameKind kind;
        FrameCount::Time time;
        uint64_t cutGood; // so far
    } steps[] = {
        {SMALL, FrameKind::good, 0ms, 0},
        {SMALL, FrameKind::wrongCrc, 10ms, 0},
        {SMALL, FrameKind::good, 20ms, 0},
        {stray, FrameKind::wrongEscape, 1000ms, 0}, // a C0 that is not escaped
        {SMALL, FrameKind::good, 1000ms, 1},
        {SMALL, FrameKind::wrongCount, 1100ms, 1}, // not good, so it does not count
        {SMALL, FrameKind::good, 1899ms, 2},
        {SMALL, FrameKind::good, 1900ms, 2},
        {SMALL, FrameKind::wrongEscape, 2000ms, 2}, // in pairs still
        {SMALL, FrameKind::good, 2001ms, 2},
        {SMALL, FrameKind::wrongDelimiter, 3000ms, 2},
        {SMALL, FrameKind::good, 3001ms, 3},
    };
    FrameStream stream({}, 1);
    FrameCount count;
    for (const auto& [frame, kind, time, cutGood] : steps) {
        count.Sent(stream.Add(frame, kind).value(), time);
        EXPECT_EQ(count.CutGood(), cutGood) << time.count();
    }
    count.Torn(5s);
    count.Sent(stream.Add(SMALL, FrameKind::good).value(), 5100ms);
    EXPECT_EQ(count.CutGood(), 4U);
    EXPECT_EQ(count.All(), 13U);
    EXPECT_EQ(count.Of(FrameKind::good), 8U);
    EXPECT_EQ(count.Of(FrameKind::wrongEscape), 2U);
}

} // namespace
