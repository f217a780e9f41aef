// The layer over the message set's runtime, and the faults of that runtime that are mended when its types are made.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "bytes.h"
#include "captured_frames.h"
#include "v2x/v2xmsgset.h"

namespace {

using testing::Each;

struct Decoded {
    MessageFrame_t* frame = nullptr;
    asn_dec_rval_t result{};
    Decoded(asn_transfer_syntax syntax, const std::vector<uint8_t>& bytes) {
        result = asn_decode(nullptr, syntax, &asn_DEF_MessageFrame, reinterpret_cast<void**>(&frame), bytes.data(),
                            bytes.size());
    }
    ~Decoded() { ASN_STRUCT_FREE(asn_DEF_MessageFrame, frame); }
    Decoded(const Decoded&) = delete;
    Decoded& operator=(const Decoded&) = delete;
};

Bytes bytesOf(const std::string& text) {
    return {text.begin(), text.end()};
}

// A SPAT in XER around one phase state, with a name.
std::string spatText(const std::string& light, const std::string& name = "x") {
    return "<MessageFrame><spatFrame><msgCnt>1</msgCnt><name>" + name +
           "</name><intersections><IntersectionState><intersectionId><id>5</id></intersectionId>"
           "<status>0000000000000000</status><phases><Phase><id>1</id><phaseStates><PhaseState><light>" +
           light +
           "</light></PhaseState></phaseStates></Phase></phases></IntersectionState></intersections></spatFrame>"
           "</MessageFrame>";
}

TEST(MsgSet, SyntaxesAndSizes) {
    const Bytes bytes = hex(captured::bsm);
    const Decoded decoded(ATS_UNALIGNED_CANONICAL_PER, bytes);
    ASSERT_EQ(decoded.result.code, RC_OK);
    EXPECT_EQ(decoded.result.consumed, bytes.size());
    const struct {
        asn_transfer_syntax syntax;
        ssize_t size; // 0 = any
    } cases[] = {{ATS_UNALIGNED_CANONICAL_PER, 49}, {ATS_BASIC_XER, 0}, {ATS_CANONICAL_XER, 0}, {ATS_INVALID, -1}};
    for (const auto& row : cases) {
        const asn_enc_rval_t full =
            asn_encode_to_buffer(nullptr, row.syntax, &asn_DEF_MessageFrame, decoded.frame, nullptr, 0);
        if (row.size != 0) {
            EXPECT_EQ(full.encoded, row.size);
        }
        if (full.encoded < 0) {
            EXPECT_EQ(full.failed_type, nullptr);
            continue;
        }
        const auto size = static_cast<size_t>(full.encoded);
        Bytes exact(size);
        EXPECT_EQ(
            asn_encode_to_buffer(nullptr, row.syntax, &asn_DEF_MessageFrame, decoded.frame, exact.data(), size).encoded,
            full.encoded);
        Bytes shorter(size - 1); // the address sanitizer sees a byte too many
        EXPECT_EQ(
            asn_encode_to_buffer(nullptr, row.syntax, &asn_DEF_MessageFrame, decoded.frame, shorter.data(), size - 1)
                .encoded,
            full.encoded);
        const Decoded again(row.syntax, exact);
        EXPECT_EQ(again.result.code, RC_OK);
        EXPECT_EQ(again.result.consumed, size - (row.syntax == ATS_BASIC_XER ? 1 : 0)) << "but for the last line's end";
    }
    EXPECT_EQ(Decoded(ATS_INVALID, bytes).result.code, RC_FAIL);
}

TEST(MsgSet, BytesThatEndTooEarlyOrFitNowhere) {
    const Bytes whole = hex(captured::spat);
    EXPECT_EQ(Decoded(ATS_UNALIGNED_CANONICAL_PER, Bytes(whole.begin(), whole.begin() + 20)).result.code, RC_WMORE);
    EXPECT_EQ(Decoded(ATS_UNALIGNED_CANONICAL_PER, {0x50}).result.code, RC_FAIL) << "the sixth alternative of five";
    EXPECT_EQ(Decoded(ATS_CANONICAL_XER, bytesOf("<MessageFrame>")).result.code, RC_WMORE);
    EXPECT_EQ(Decoded(ATS_CANONICAL_XER, bytesOf("</MessageFrame>")).result.code, RC_FAIL);
}

// Unmended, a type's check is lost at its first use.
TEST(MsgSet, ConstraintsHoldAfterTheFirstUse) {
    const Decoded decoded(ATS_UNALIGNED_CANONICAL_PER, hex(captured::spat));
    ASSERT_EQ(decoded.result.code, RC_OK);
    SPAT_t& spat = decoded.frame->choice.spatFrame;
    PhaseState_t& state = *spat.intersections.list.array[0]->phases.list.array[0]->phaseStates.list.array[0];
    const struct {
        const char* type;
        long* value;
        long outside;
    } cases[] = {
        {"MsgCount", &spat.msgCnt, 128},
        {"MinuteOfTheYear", spat.moy, 527041},
        {"DSecond", spat.timeStamp, -1},
        {"NodeID", &spat.intersections.list.array[0]->intersectionId.id, 65536},
        {"LightState", &state.light, 9},
        {"LightState", &state.light, -1},
        {"TimeMark", &state.timing->choice.counting.likelyEndTime, 36002},
    };
    for (int round = 0; round < 2; round++) {
        for (const auto& row : cases) {
            EXPECT_EQ(asn_check_constraints(&asn_DEF_MessageFrame, decoded.frame, nullptr, nullptr), 0);
            const long good = std::exchange(*row.value, row.outside);
            char text[200];
            size_t size = sizeof text;
            EXPECT_EQ(asn_check_constraints(&asn_DEF_MessageFrame, decoded.frame, text, &size), -1) << row.type;
            EXPECT_THAT(text, testing::HasSubstr(row.type));
            *row.value = good;
        }
    }
}

// Unmended, a list may have any number of elements.
TEST(MsgSet, ListsHaveBounds) {
    const Decoded decoded(ATS_UNALIGNED_CANONICAL_PER, hex(captured::spat));
    ASSERT_EQ(decoded.result.code, RC_OK);
    int& count = decoded.frame->choice.spatFrame.intersections.list.array[0]->phases.list.count;
    ASSERT_EQ(count, 12);
    count = 0;
    char text[200];
    size_t size = sizeof text;
    EXPECT_EQ(asn_check_constraints(&asn_DEF_MessageFrame, decoded.frame, text, &size), -1);
    EXPECT_THAT(text, testing::StartsWith("PhaseList: 0 elements"));
    count = 1;
    EXPECT_EQ(asn_check_constraints(&asn_DEF_MessageFrame, decoded.frame, nullptr, nullptr), 0);
    count = 12;
}

// Each of these is a leak, a read beyond a name or an abort without its mend; the sanitizers see the first two.
TEST(MsgSet, HostileText) {
    const std::string good = spatText("<red/>");
    const struct {
        const char* what;
        std::string text;
        asn_dec_rval_code_e code;
    } cases[] = {
        {"good", good, RC_OK},
        {"a name with a NUL in it", spatText("<red" + std::string(1, '\0') + "dle/>"), RC_FAIL},
        {"a name that begins like one", spatText("<redder/>"), RC_FAIL},
        {"an empty reference", spatText("<red/>", "a&#;b"), RC_OK},
        {"a reference without digits", spatText("<red/>", "&#x;"), RC_OK},
        {"a reference to NUL", spatText("<red/>", "&#0;"), RC_OK},
    };
    for (const auto& row : cases) {
        EXPECT_EQ(Decoded(ATS_CANONICAL_XER, bytesOf(row.text)).result.code, row.code) << row.what;
    }
    for (size_t size = 1; size < good.size(); size++) {
        EXPECT_NE(Decoded(ATS_CANONICAL_XER, bytesOf(good.substr(0, size))).result.code, RC_OK) << size;
    }
}

} // namespace
