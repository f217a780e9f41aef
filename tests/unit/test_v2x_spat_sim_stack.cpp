#include <gtest/gtest.h>

#include "bytes.h"
#include "spat_build.h"
#include "stack_reply.h"

using namespace sim;

namespace {

const Bytes SMALLEST = hex("30 00 00 00 00 00 00 00 00 00"); // a SPAT without any optional part

constexpr uint64_t TIME = 1732181400123456; // 2024-11-21 09:30:00.123456 UTC

// ---- replies

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

TEST(SpatBuild, RefusesWhatTheMessageSetDoesNotHave) {
    EXPECT_FALSE(BuildSpat(Record({})));
    EXPECT_FALSE(BuildSpat(Record({{3, {}}})));
    EXPECT_FALSE(BuildSpat(Record({{3, {Light(9, 0, 150)}}})));
    EXPECT_FALSE(BuildSpat(Record({{3, {Light(5, 0, 36002)}}})));
    SpatRecord uncertain = GREEN;
    uncertain.phases[0].states[0].confidence = 201;
    EXPECT_FALSE(BuildSpat(uncertain));
}

} // namespace
