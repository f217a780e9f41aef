// Tests the layer over the message set's runtime, and the corrections that the build applies to generated code.
#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <string>

#include "bytes.h"
#include "captured_frames.h"
#include "v2x/v2xmsgset.h"

namespace {

asn_dec_rval_code_e codeOf(asn_transfer_syntax syntax, const Bytes& bytes) {
    void* frame = nullptr;
    const asn_dec_rval_t result =
        asn_decode(nullptr, syntax, &asn_DEF_MessageFrame, &frame, bytes.data(), bytes.size());
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, static_cast<MessageFrame_t*>(frame));
    return result.code;
}

// The buffer ends where the text ends, so that the sanitizer sees a read beyond it.
asn_dec_rval_code_e codeOf(const std::string& xer) {
    return codeOf(ATS_CANONICAL_XER, Bytes(xer.begin(), xer.end()));
}

// Returns a SPAT in XER with one phase state.
std::string spatText(const std::string& light, const std::string& name = "x") {
    return "<MessageFrame><spatFrame><msgCnt>1</msgCnt><name>" + name +
           "</name><intersections><IntersectionState><intersectionId><id>5</id></intersectionId>"
           "<status>0000000000000000</status><phases><Phase><id>1</id><phaseStates><PhaseState><light>" +
           light +
           "</light></PhaseState></phaseStates></Phase></phases></IntersectionState></intersections></spatFrame>"
           "</MessageFrame>";
}

TEST(MsgSet, RejectsInvalidInput) {
    EXPECT_EQ(codeOf(ATS_UNALIGNED_CANONICAL_PER, hex("36B6FA9DB8E6C0")), RC_WMORE);
    EXPECT_EQ(codeOf(ATS_UNALIGNED_CANONICAL_PER, {0x50}), RC_FAIL) << "the sixth alternative of five";
    EXPECT_EQ(codeOf("<MessageFrame>"), RC_WMORE);
    EXPECT_EQ(codeOf("</MessageFrame>"), RC_FAIL);
    EXPECT_EQ(codeOf(ATS_INVALID, hex(captured::bsm)), RC_FAIL);
    EXPECT_EQ(asn_encode_to_buffer(nullptr, ATS_INVALID, &asn_DEF_MessageFrame, nullptr, nullptr, 0).encoded, -1);
}

// Without the correction a type loses its check at its first use.
TEST(MsgSet, ChecksConstraintsAfterFirstUse) {
    const Bytes bytes = hex(captured::spat);
    void* frame = nullptr;
    asn_decode(nullptr, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame, &frame, bytes.data(), bytes.size());
    ASSERT_NE(frame, nullptr);
    SPAT_t& spat = static_cast<MessageFrame_t*>(frame)->choice.spatFrame;
    PhaseState_t& state = *spat.intersections.list.array[0]->phases.list.array[0]->phaseStates.list.array[0];
    const struct {
        const char* type;
        long* value;
        long outside;
    } cases[] = {
        {"MsgCount", &spat.msgCnt, 128},
        {"DSecond", spat.timeStamp, -1},
        {"LightState", &state.light, 9},
        {"TimeMark", &state.timing->choice.counting.likelyEndTime, 36002},
    };
    for (int round = 0; round < 2; round++) {
        for (const auto& row : cases) {
            EXPECT_EQ(asn_check_constraints(&asn_DEF_MessageFrame, frame, nullptr, nullptr), 0);
            const long good = std::exchange(*row.value, row.outside);
            char text[200];
            size_t size = sizeof text;
            EXPECT_EQ(asn_check_constraints(&asn_DEF_MessageFrame, frame, text, &size), -1) << row.type;
            EXPECT_THAT(text, testing::HasSubstr(row.type));
            *row.value = good;
        }
    }
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, static_cast<MessageFrame_t*>(frame));
}

// Without the corrections these texts cause a leak, a read beyond a name or an abort. The sanitizers report the first
// two.
TEST(MsgSet, SurvivesHostileXer) {
    const std::string good = spatText("<red/>");
    EXPECT_EQ(codeOf(good), RC_OK);
    EXPECT_EQ(codeOf(spatText("<red" + std::string(1, '\0') + "dle/>")), RC_FAIL) << "a name with a NUL in it";
    EXPECT_EQ(codeOf(spatText("<redder/>")), RC_FAIL) << "a name that starts like a valid one";
    for (const char* reference : {"a&#;b", "&#x;", "&#0;"}) {
        EXPECT_EQ(codeOf(spatText("<red/>", reference)), RC_OK) << reference;
    }
    for (size_t size = 1; size < good.size(); size++) {
        EXPECT_NE(codeOf(good.substr(0, size)), RC_OK) << size;
    }
}

} // namespace
