#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <algorithm>
#include <cerrno>
#include <map>
#include <random>
#include <set>
#include <sstream>

#include "bytes.h"
#include "captured_frames.h"
#include "frame_file.h"
#include "spat_build.h"
#include "stack_answer.h"
#include "stack_reply.h"

using namespace sim;
using testing::AllOf;
using testing::ElementsAre;
using testing::Ge;
using testing::HasSubstr;
using testing::Le;

namespace {

const Bytes SPAT = hex(captured::spat);
const Bytes BSM = hex(captured::bsm);
const Bytes SMALLEST = hex("30 00 00 00 00 00 00 00 00 00"); // a SPAT without any optional part

// 2024-11-21 09:30:00.123456 UTC
constexpr uint64_t TIME = 1732181400123456;
const std::string HEAD = "A5 5A 04 00 40 78 0A E9 68 27 06 00 ";

// ---- replies

TEST(StackReply, IsLaidOutByteForByte) {
    EXPECT_EQ(EncodeReply(std::vector<Item>{hex("AA BB CC"), hex("DD")}, TIME),
              hex(HEAD + "15 00 13 00 00 0B 00 00 00 02 00 00 00 08 00 00 03 00 AA BB CC 01 00 DD"));
    const std::vector<Item> large = {Item(300, 0x11)};
    const Bytes reply = EncodeReply(large, 0);
    EXPECT_EQ(Bytes(reply.begin(), reply.begin() + 31),
              hex("A5 5A 04 00 00 00 00 00 00 00 00 00 15 00 39 01 00 0B 00 00 00 01 00 00 00 2E 01 00 2C 01 11"));
    EXPECT_EQ(reply.size(), 330U);
    EXPECT_EQ(ReplyPayload(large), 313U);
}

TEST(StackReply, IsRead) {
    const std::string one = "0A 00 30 00 00 00 00 00 00 00 00 00 ";
    const struct {
        std::string bytes;
        ReplyKind kind;
        size_t items;
    } cases[] = {
        {HEAD + "15 00 17 00 00 0B 00 00 00 01 00 00 00 0C 00 00" + one, ReplyKind::good, 1},
        {HEAD + "15 00 23 00 00 0B 00 00 00 02 00 00 00 18 00 00" + one + one, ReplyKind::good, 2},
        {HEAD + "15 00 23 00 00 0B 00 00 00 01 00 00 00 18 00 00" + one + one, ReplyKind::good, 1}, // fewer claimed
        {HEAD + "15 00 0B 00 00 0B 00 00 00 00 00 00 00 00 00 00", ReplyKind::good, 0},
        {HEAD + "15 00 0B 00 00 0B 00 00 00 00 00 00 00 00 00", ReplyKind::tooShort, 0},
        {"", ReplyKind::tooShort, 0},
        {"A5 5B 04 00 40 78 0A E9 68 27 06 00 15 00 0B 00 00 0B 00 00 00 00 00 00 00 00 00 00", ReplyKind::wrongHead,
         0},
        {HEAD + "15 00 0C 00 00 0B 00 00 00 00 00 00 00 00 00 00", ReplyKind::wrongLength, 0},
        {HEAD + "14 00 17 00 00 0B 00 00 00 01 00 00 00 0C 00 00" + one, ReplyKind::wrongCommand, 0},
        {HEAD + "15 01 17 00 00 0B 00 00 00 01 00 00 00 0C 00 00" + one, ReplyKind::wrongCommand, 0},
        {HEAD + "15 00 17 00 00 01 00 00 00 01 00 00 00 0C 00 00" + one, ReplyKind::wrongType, 0},
        {HEAD + "15 00 17 00 00 0B 00 00 80 01 00 00 00 0C 00 00" + one, ReplyKind::wrongType, 0},
        {HEAD + "15 00 17 00 00 0B 00 00 00 02 00 00 00 0C 00 00" + one, ReplyKind::wrongNumber, 1},
        {HEAD + "15 00 17 00 00 0B 00 00 00 FF FF FF 7F 0C 00 00" + one, ReplyKind::wrongNumber, 1},
        {HEAD + "15 00 18 00 00 0B 00 00 00 02 00 00 00 0D 00 00" + one + "0A", ReplyKind::cutItem, 1},
        {HEAD + "15 00 16 00 00 0B 00 00 00 01 00 00 00 0B 00 00 0A 00 30 00 00 00 00 00 00 00 00", ReplyKind::cutItem,
         0},
        {HEAD + "15 00 16 00 00 0B 00 00 00 01 00 00 00 0B 00 00 09 00 30 00 00 00 00 00 00 00 00", ReplyKind::garbage,
         0},
        {HEAD + "15 00 0D 00 00 0B 00 00 00 01 00 00 00 02 00 00 00 00", ReplyKind::garbage, 0},
        {HEAD + "15 00 24 00 00 0B 00 00 00 02 00 00 00 19 00 00" + one + "0B 00 30 00 00 00 00 00 00 00 00 00 00",
         ReplyKind::trailing, 1},
    };
    for (const auto& [bytes, kind, items] : cases) {
        const ReplyReading reading = ReadReply(hex(bytes));
        EXPECT_EQ(reading.kind, kind) << bytes;
        EXPECT_EQ(reading.items, items) << bytes;
    }
    Bytes largest = hex(HEAD + "15 00 00 50 00 0B 00 00 00 00 00 00 00 F5 4F 00");
    largest.resize(17 + 20480);
    EXPECT_EQ(ReadReply(largest).kind, ReplyKind::good);
    largest.push_back(0);
    largest[14] = 1;
    EXPECT_EQ(ReadReply(largest).kind, ReplyKind::tooLarge);
}

uint16_t Length(const Bytes& bytes, size_t at) {
    return static_cast<uint16_t>(bytes.at(at) | bytes.at(at + 1) << 8);
}

// The items of a reply of which only items are bad, and what its last item lacks. Every length in the heads must fit.
struct Items {
    std::vector<Bytes> whole;
    size_t missing = 0;
};
Items Walk(const Bytes& reply) {
    EXPECT_EQ(Length(reply, 14), reply.size() - 17);
    EXPECT_EQ(Length(reply, 25), reply.size() - 28);
    Items items;
    for (size_t at = 28; at < reply.size();) {
        const size_t size = at + 1 < reply.size() ? Length(reply, at) : 2;
        const size_t end = at + 2 + size;
        if (end > reply.size()) {
            items.missing = end - reply.size();
            break;
        }
        items.whole.emplace_back(reply.begin() + static_cast<ptrdiff_t>(at) + 2,
                                 reply.begin() + static_cast<ptrdiff_t>(end));
        at = end;
    }
    return items;
}

std::vector<uint32_t> Randoms() {
    std::vector<uint32_t> randoms(1000);
    std::ranges::generate(randoms, std::mt19937(1));
    return randoms;
}

const std::vector<Item> THREE = {SPAT, SMALLEST, BSM};

bool IsPrefix(const Bytes& front, const Bytes& whole) {
    return front.size() <= whole.size() && std::equal(front.begin(), front.end(), whole.begin());
}

// What a kind changes in the heads, and nothing else.
TEST(BadReply, ChangesItsOwnBytesOfTheHeads) {
    const Bytes good = EncodeReply(THREE, TIME);
    const struct {
        ReplyKind kind;
        size_t from, to;
    } cases[] = {
        {ReplyKind::good, 0, 0},           {ReplyKind::wrongHead, 0, 2},   {ReplyKind::wrongLength, 14, 16},
        {ReplyKind::wrongCommand, 12, 14}, {ReplyKind::wrongType, 17, 21}, {ReplyKind::wrongNumber, 21, 25},
    };
    for (const auto& [kind, from, to] : cases) {
        std::set<Bytes> ways;
        for (const uint32_t random : Randoms()) {
            Bytes bad = EncodeBadReply(THREE, TIME, kind, random);
            ways.insert(bad);
            ASSERT_EQ(ReadReply(bad).kind, kind);
            ASSERT_EQ(bad.size(), good.size());
            std::copy(&good[from], &good[to], &bad[from]);
            ASSERT_EQ(bad, good);
        }
        EXPECT_EQ(ways.size() > 8, kind != ReplyKind::good);
    }
    std::set<size_t> sizes;
    for (const uint32_t random : Randoms()) {
        const Bytes bad = EncodeBadReply(THREE, TIME, ReplyKind::tooShort, random);
        ASSERT_TRUE(IsPrefix(bad, good));
        sizes.insert(bad.size());
    }
    EXPECT_EQ(sizes.size(), 28U);
    EXPECT_EQ(*sizes.rbegin(), 27U);
    Bytes large = EncodeBadReply(THREE, TIME, ReplyKind::tooLarge, 1);
    EXPECT_EQ(large.size(), 17U + 20481U);
    EXPECT_EQ(Length(large, 14), 20481U);
    std::copy(&good[14], &good[16], &large[14]);
    std::copy(&good[25], &good[27], &large[25]);
    EXPECT_TRUE(IsPrefix(good, large));
}

TEST(BadReply, CutsTheLastItem) {
    std::set<size_t> missing;
    for (const uint32_t random : Randoms()) {
        const Bytes bad = EncodeBadReply(THREE, TIME, ReplyKind::cutItem, random);
        const Items items = Walk(bad);
        ASSERT_THAT(items.whole, ElementsAre(SPAT, SMALLEST));
        ASSERT_EQ(ReadReply(bad).kind, ReplyKind::cutItem);
        ASSERT_EQ(ReadReply(bad).items, 2U);
        missing.insert(items.missing);
    }
    EXPECT_GT(missing.size(), 40U);
    EXPECT_FALSE(missing.contains(0));
}

// One item is bad, any of them; those before it are counted.
TEST(BadReply, SpoilsOneItem) {
    for (const ReplyKind kind : {ReplyKind::garbage, ReplyKind::trailing}) {
        std::map<size_t, int> spoilt;
        for (const uint32_t random : Randoms()) {
            const Bytes bad = EncodeBadReply(THREE, TIME, kind, random);
            const std::vector<Bytes> items = Walk(bad).whole;
            ASSERT_EQ(items.size(), 3U);
            std::set<size_t> different;
            for (size_t at = 0; at < 3; ++at) {
                if (items[at] != THREE[at]) {
                    different.insert(at);
                }
            }
            ASSERT_EQ(different.size(), 1U);
            const size_t at = *different.begin();
            ASSERT_EQ(kind == ReplyKind::trailing,
                      items[at].size() > THREE[at].size() && IsPrefix(THREE[at], items[at]));
            ASSERT_EQ(ReadReply(bad).kind, kind);
            ASSERT_EQ(ReadReply(bad).items, at);
            ++spoilt[at];
        }
        EXPECT_EQ(spoilt.size(), 3U);
    }
}

// Each cut is a block of its own size: the address sanitizer sees a read past its end.
TEST(StackReply, ReadsEveryCutOfEveryKind) {
    for (size_t kind = 0; kind < REPLY_KINDS; ++kind) {
        const Bytes reply = EncodeBadReply({SMALLEST, SMALLEST}, TIME, static_cast<ReplyKind>(kind), 7);
        for (size_t size = 0; size < std::min<size_t>(reply.size(), 60); ++size) {
            const Bytes cut(reply.begin(), reply.begin() + static_cast<ptrdiff_t>(size));
            EXPECT_NE(ReadReply(cut).kind, ReplyKind::good);
        }
    }
}

// ---- frames of a file

TEST(FrameFile, ReadsAFrameALine) {
    std::istringstream in("# two frames\n\n30:00 00\t# the first\r\n  0x07 a4-66\n");
    EXPECT_THAT(ReadFrames(in, "f", 3), ElementsAre(hex("30 00 00"), hex("07 A4 66")));
}

TEST(FrameFile, RefusesBadLinesByNumberAndReason) {
    const std::pair<const char*, const char*> cases[] = {
        {"", "f: holds no frame"},
        {"# nothing\n\n", "f: holds no frame"},
        {"30 00\n\n3x 00\n", "f:3: character 2: 'x' is not a hexadecimal digit"},
        {"30 0\n", "f:1: character 4: a byte of one digit"},
        {"30 00 00 00\n", "f:1: 4 bytes; at most 3 fit"},
    };
    for (const auto& [text, reason] : cases) {
        std::istringstream in(text);
        EXPECT_THAT([&] { ReadFrames(in, "f", 3); }, testing::ThrowsMessage<std::runtime_error>(HasSubstr(reason)));
    }
    EXPECT_THAT([] { ReadFrameFile("no/such/file", 3); },
                testing::ThrowsMessage<std::runtime_error>(HasSubstr("no/such/file: cannot be opened: No such file")));
}

// ---- a message from a record

SpatRecord Record(std::vector<Phase> phases) {
    return {TIME, 0x10002, 0, 468754, 56789, static_cast<int8_t>(phases.size()), std::move(phases), 0};
}

PhaseState Light(uint8_t light, uint16_t start, uint16_t end) {
    return {1, light, start, end, {}, {}, {}, {}, {}};
}

const SpatRecord GREEN = Record({{3, {Light(5, 0, 150)}}});

// The message with the message count, which goes on from message to message, set to zero.
Bytes WithoutCount(std::optional<Bytes> frame) {
    EXPECT_TRUE(frame);
    frame.value().at(1) &= 1;
    return *frame;
}

// The expected frames were made by another encoder. Missing next times are written as unknown ones.
TEST(SpatBuild, SaysWhatTheRecordSays) {
    EXPECT_EQ(WithoutCount(BuildSpat(GREEN)), hex("3600E4E25BBAA00800080010000001825060000012D194319420"));
    SpatRecord full = Record({{255, {Light(8, 1, 36001), Light(3, 29, 57)}}, {7, {}}, {0, {Light(1, 0, 0)}}});
    full.intersection = 0xFFFFFEDC;
    full.status = 0x0503;
    full.moy = 0xFFFFFFFF;
    full.secMark = 65535;
    PhaseState& first = full.phases[0].states[0];
    first.minEnd = 7;
    first.maxEnd = 36000;
    first.nextStart = 333;
    first.nextDuration = 65;
    first.confidence = 199;
    full.phases[0].states[1].confidence = 29; // 29 / 200 * 200 is a little less than 29
    full.phases[2].states[0].mode = 0;        // no timing
    EXPECT_EQ(WithoutCount(BuildSpat(full)),
              hex("3201FFFE00FFFFFF6E02818FF8A83E0002000F194119438E029A00828C3800E801C8EC650C65080001"));
}

TEST(SpatBuild, CountsItsMessages) {
    const auto count = [] { return BuildSpat(GREEN).value().at(1) >> 1; };
    const int first = count();
    EXPECT_EQ(count(), (first + 1) % 128);
}

TEST(SpatBuild, LeavesOutWhatAMessageCannotHold) {
    std::vector<Phase> many(17, {3, {Light(5, 0, 150)}});
    many.insert(many.begin(), {9, {}});
    const std::vector<Phase> fit(16, {3, {Light(5, 0, 150)}});
    EXPECT_EQ(WithoutCount(BuildSpat(Record(many))), WithoutCount(BuildSpat(Record(fit))));
    const Phase states{3, std::vector<PhaseState>(17, Light(5, 0, 150))};
    const Phase fitStates{3, std::vector<PhaseState>(16, Light(5, 0, 150))};
    EXPECT_EQ(WithoutCount(BuildSpat(Record({states}))), WithoutCount(BuildSpat(Record({fitStates}))));
}

TEST(SpatBuild, RefusesWhatTheMessageSetDoesNotHave) {
    EXPECT_FALSE(BuildSpat(Record({})));
    EXPECT_FALSE(BuildSpat(Record({{3, {}}})));
    EXPECT_FALSE(BuildSpat(Record({{3, {Light(9, 0, 150)}}})));
    EXPECT_FALSE(BuildSpat(Record({{3, {Light(5, 0, 36002)}}})));
    SpatRecord uncertain = GREEN;
    uncertain.phases[0].states[0].confidence = 201;
    EXPECT_FALSE(BuildSpat(uncertain));
}

// ---- answers

using Numbers = std::map<std::string, uint64_t>;

Numbers NumbersOf(const Answerer& answerer) {
    Summary summary;
    answerer.AddTo(summary);
    return {summary.numbers.begin(), summary.numbers.end()};
}

TEST(Answerer, AnswersWithTheLastRecord) {
    Answerer answerer({}, 1);
    EXPECT_FALSE(answerer.Answer(TIME));
    answerer.OnRecord(Record({}));
    EXPECT_FALSE(answerer.Answer(TIME));
    answerer.OnRecord(GREEN);
    auto reply = answerer.Answer(TIME);
    ASSERT_TRUE(reply);
    answerer.Sent(*reply, 0);
    answerer.Sent(*reply, ECONNREFUSED);
    (*reply)[31] &= 1;
    EXPECT_EQ(*reply, hex(HEAD + "15 00 27 00 00 0B 00 00 00 01 00 00 00 1C 00 00 1A 00"
                                 "3600E4E25BBAA00800080010000001825060000012D194319420"));
    Summary summary;
    answerer.AddTo(summary);
    EXPECT_EQ(summary.text,
              ", 1 replies (1 good) with 1 items, 1 requests before any record, 1 requests about a record "
              "that cannot be encoded, 1 replies refused (Connection refused)");
}

TEST(Answerer, TakesFramesInTurn) {
    AnswerOptions options;
    options.frames = THREE;
    options.items = 2;
    Answerer answerer(options, 1);
    answerer.OnRecord(GREEN);
    EXPECT_THAT(Walk(answerer.Answer(TIME).value()).whole, ElementsAre(SPAT, SMALLEST));
    EXPECT_THAT(Walk(answerer.Answer(TIME).value()).whole, ElementsAre(BSM, SPAT));
    EXPECT_THAT(Walk(answerer.Answer(TIME).value()).whole, ElementsAre(SMALLEST, BSM));
    EXPECT_THAT(Walk(answerer.Answer(TIME).value()).whole, ElementsAre(SPAT, SMALLEST));
}

// Also when the file holds something that is no frame, what is counted as good can be decoded.
TEST(Answerer, CountsByWhatTheBytesAre) {
    AnswerOptions options;
    options.frames = {SMALLEST, hex("70")};
    options.items = 2;
    Answerer answerer(options, 1);
    answerer.Sent(answerer.Answer(TIME).value(), 0);
    const Numbers numbers = NumbersOf(answerer);
    EXPECT_EQ(numbers.at("repliesGarbage"), 1U);
    EXPECT_EQ(numbers.at("repliesGood"), 0U);
    EXPECT_EQ(numbers.at("repliesBad"), 1U);
    EXPECT_EQ(numbers.at("items"), 1U);
}

TEST(Answerer, SpoilsTheShareWithTheChosenKinds) {
    AnswerOptions options;
    options.frames = THREE;
    options.items = 2;
    options.bad = 0.25;
    options.badKinds = {ReplyKind::wrongHead, ReplyKind::wrongNumber};
    Answerer answerer(options, 7);
    Answerer again(options, 7);
    for (int number = 0; number < 4000; ++number) {
        const Bytes reply = answerer.Answer(TIME).value();
        ASSERT_EQ(reply, again.Answer(TIME));
        answerer.Sent(reply, 0);
    }
    Numbers numbers = NumbersOf(answerer);
    EXPECT_EQ(numbers["replies"], 4000U);
    EXPECT_THAT(numbers["repliesHead"], AllOf(Ge(440U), Le(560U)));
    EXPECT_THAT(numbers["repliesNumber"], AllOf(Ge(440U), Le(560U)));
    EXPECT_EQ(numbers["repliesBad"], numbers["repliesHead"] + numbers["repliesNumber"]);
    EXPECT_EQ(numbers["repliesGood"], 4000 - numbers["repliesBad"]);
    EXPECT_EQ(numbers["items"], 2 * (numbers["repliesGood"] + numbers["repliesNumber"]));
}

TEST(Answerer, RefusesRepliesThatAreTooLarge) {
    AnswerOptions options;
    options.frames = {Item(10000), Item(10465)};
    options.items = 2;
    EXPECT_NO_THROW(CheckAnswers(options)); // 11 + 2 + 10000 + 2 + 10465 = 20480
    options.frames[1].push_back(0);
    EXPECT_THAT([&] { CheckAnswers(options); },
                testing::ThrowsMessage<std::invalid_argument>(
                    "2 frames from frame 1 on make a reply of 20481 bytes; at most 20480 are taken"));
    options.items = 1;
    EXPECT_NO_THROW(CheckAnswers(options));
}

} // namespace
