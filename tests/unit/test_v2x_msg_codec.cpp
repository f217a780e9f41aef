// Tests the notes and problems of decoded frames and XER documents.
#include <gtest/gtest.h>

#include "codec.h"
#include "uper_frames.h"

namespace {

const std::string SPAT =
    "<MessageFrame><spatFrame><msgCnt>1</msgCnt><name>x</name><intersections><IntersectionState><intersectionId><id>5"
    "</id></intersectionId><status>0000000000000000</status><phases><Phase><id>1</id><phaseStates><PhaseState><light>"
    "<red/></light><timing><counting><startTime>1</startTime><likelyEndTime>2</likelyEndTime></counting></timing>"
    "</PhaseState></phaseStates></Phase></phases></IntersectionState></intersections></spatFrame></MessageFrame>";
const std::string STATE = "MessageFrame/spatFrame/intersections/IntersectionState";
const std::string PHASE_STATE = STATE + "/phases/Phase/phaseStates/PhaseState";

TEST(MsgCodec, DescribesMistakesInXer) {
    const struct {
        std::string old; // part of SPAT
        std::string fresh;
        std::string text;
        bool isSkipped = false; // Unknown::skip accepts the document
    } cases[] = {
        {"<timing>", "<timming>", PHASE_STATE + ": unknown element <timming>, did you mean <timing>?", true},
        {"</light>", "</light><a><b c=\"d\"/>e</a>", PHASE_STATE + ": unknown element <a>", true},
        {"<spatFrame>", "<SPATframe>", "MessageFrame: unknown element <SPATframe>, did you mean <spatFrame>?"},
        {"<counting>", "<zzz>", PHASE_STATE + "/timing: unknown element <zzz>"},
        {"<likelyEnd", "<minEndTime>1</minEndTime><mEnd",
         PHASE_STATE + "/timing/counting: unknown element <mEndTime>, did you mean <maxEndTime>?"},
        {"<Phase>", "<Phas>", STATE + "/phases: unknown element <Phas>, did you mean <Phase>?"},
        {"<red/>", "<Redd/>", PHASE_STATE + "/light: unknown element <Redd>, did you mean <red>?"},
        {"<light>", " 3\x1B<light>", PHASE_STATE + ": text between elements: 3.", true},
        {"<msgCnt", "<msgCnt a=\"b\"", "MessageFrame/spatFrame: unknown attribute: <msgCnt a=\"b\">", true},
        {"</light>", "</light><light/>", PHASE_STATE + ": <light> is repeated or out of order", true},
        {"</counting>", "</counting><utcTiming/>", PHASE_STATE + "/timing: <utcTiming> is a second alternative"},
        {"<light><red/></light>", "", PHASE_STATE + ": <light> is missing before <timing>"},
        {"<likelyEndTime>2</likelyEndTime>", "", PHASE_STATE + "/timing/counting: <likelyEndTime> is missing"},
        {"</Phase>", "", STATE + "/phases/Phase: </phases> instead of </Phase>"},
        {"<red/>", "<red/><dark/>", PHASE_STATE + ": invalid value: <light><red/><dark/></light>"},
        {"0000000000000000", "2", STATE + "/status: invalid value: 2"},
        {"</MessageFrame>", "</MessageFrame>x", "not understood: x"},
    };
    for (const auto& row : cases) {
        std::string text = SPAT;
        text.replace(text.find(row.old), row.old.size(), row.fresh);
        const msg::Decoded refused = msg::DecodeXer(text, msg::Unknown::refuse);
        ASSERT_EQ(refused.problems.size(), 1U);
        EXPECT_EQ(refused.problems[0].text, row.text);
        const msg::Decoded skipped = msg::DecodeXer(text, msg::Unknown::skip);
        ASSERT_EQ(skipped.problems.empty(), row.isSkipped) << row.text;
        if (row.isSkipped) {
            EXPECT_EQ(skipped.notes, std::vector<std::string>{row.text});
            EXPECT_EQ(skipped.noteOffsets, std::vector<size_t>{refused.problems[0].offset});
        }
    }
}

TEST(MsgCodec, NotesPartsOfANewerEdition) {
    const std::pair<std::string, std::string> cases[] = {
        {"PhaseState_new1", "addition of 1 octet in PhaseState"},
        {"SPAT_new17000", "addition of 17000 octets in SPAT"},
        {"LightState_new70", "new value 78 in LightState (decoded as unavailable)"},
        {"TimeChangeDetails_new5", "new alternative in TimeChangeDetails (decoded as none)"},
    };
    const std::vector<UperFrame> frames = uperFrames(V2X_TEST_DATA "/uper/newer.txt");
    for (const auto& [name, text] : cases) {
        const auto frame = std::ranges::find(frames, name, &UperFrame::name);
        ASSERT_NE(frame, frames.end());
        EXPECT_EQ(msg::DecodeFrame(frame->bytes).notes.at(0), text);
    }
}

TEST(MsgCodec, BoundsTheNumberOfNotes) {
    std::string text = SPAT;
    for (size_t i = 0; i < msg::Decoded::MAX_NOTES + 2; ++i) {
        text.insert(text.find("<Phase>"), "x<!-- -->");
    }
    const msg::Decoded decoded = msg::DecodeXer(text, msg::Unknown::skip);
    EXPECT_NE(decoded.message, nullptr);
    ASSERT_EQ(decoded.notes.size(), msg::Decoded::MAX_NOTES + 1);
    EXPECT_EQ(decoded.notes.back(), "2 more");
}

} // namespace
