#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>
#include <sys/mman.h>
#include <unistd.h>
#include <vector>

#include "bytes.h"
#include "captured_frames.h"
#include "codec.h"
#include "commands.h"
#include "document_source.h"
#include "encoded_frames.h"
#include "frame_source.h"
#include "hex.h"
#include "input.h"

using namespace msg;
using testing::EndsWith;
using testing::IsEmpty;
using testing::StartsWith;

namespace {

// An input that holds the text.
class TextInput {
public:
    explicit TextInput(const std::string& text) : m_input(Holding(text), "in") {}
    Input& operator*() { return m_input; }

private:
    static int Holding(const std::string& text) {
        const int file = memfd_create("input", MFD_CLOEXEC);
        EXPECT_EQ(write(file, text.data(), text.size()), static_cast<ssize_t>(text.size()));
        lseek(file, 0, SEEK_SET);
        return file;
    }

    Input m_input;
};

// What a command writes.
struct Written {
    std::string output;
    std::string errors;
    bool isGood = false;
};

Sinks Into(Written& written) {
    return {[&](std::string_view text) { written.output += text; },
            [&](std::string_view text) { written.errors += text; }};
}

Written Described(const std::string& lines) {
    Written written;
    TextInput input(lines);
    written.isGood = DescribeAll(FramesOfLines(*input), Into(written));
    return written;
}

Written Encoded(const std::string& documents) {
    Written written;
    TextInput input(documents);
    written.isGood = EncodeAll(*input, FrameForm::hex, Into(written));
    return written;
}

// ---- hex

TEST(Hex, IsReadAsPeopleWriteItOrRefusedWithTheCharacterThatIsWrong) {
    const struct {
        std::string text;
        std::string result; // bytes or problem
    } cases[] = {
        {"36 b6\tFA\r\n", "36B6FA"},
        {"36:B6-FA", "36B6FA"},
        {"0x36, 0XB6,0xfa", "36B6FA"},
        {"", ""},
        {"36 6G", "character 5: 'G' is not a hexadecimal digit"},
        {"36\xE9", "character 3: byte E9 is not a hexadecimal digit"},
        {std::string("36\0", 3), "character 3: byte 00 is not a hexadecimal digit"},
        {"36 B", "character 4: a byte of one digit"},
        {"3 6B6", "character 1: a byte of one digit"},
        {"36 0x", "character 4: 0x without a digit"},
        {"0x0xB6", "character 4: 'x' is not a hexadecimal digit"},
    };
    for (const auto& row : cases) {
        std::vector<uint8_t> bytes;
        const std::string problem = AppendHex(row.text, bytes);
        EXPECT_EQ(problem.empty() ? ToHex(bytes) : problem, row.result) << row.text;
    }
}

// ---- inputs

TEST(FrameSource, HandsOutWhatTheInputIsSaidToHold) {
    struct Row {
        const char* what;
        FrameSource (*source)(Input&);
        std::string input;
        std::vector<std::string> frames; // where: hex, or where! problem
    };
    const Row cases[] = {
        {"a frame a line",
         FramesOfLines,
         "# two\n0102 # one\n\n \t\r\nX\n03",
         {"in:2: 0102", "in:5! character 1: 'X'", "in:6: 03"}},
        {"a bad line of one frame", FrameOfAllLines, "01\n0\n03\n", {"in:2! character 1"}},
        {"nothing, as bytes", FrameOfBytes, "", {}},
        {"too many bytes", FrameOfBytes, std::string(MAX_FRAME + 1, 'x'), {"in! longer than 1048576 bytes"}},
        {"the most bytes of a line",
         FramesOfLines,
         std::string(2 * MAX_FRAME + 2, '0') + "\n01",
         {"in:1! longer than 1048576 bytes", "in:2: 01"}},
        {"too long a line",
         FramesOfLines,
         std::string(Input::MAX_LINE + 9, ' ') + "\n01",
         {"in:1! a line longer than 8388608 characters", "in:2: 01"}},
    };
    for (const Row& row : cases) {
        SCOPED_TRACE(row.what);
        TextInput input(row.input);
        const FrameSource source = row.source(*input);
        Frame frame;
        for (const std::string& expected : row.frames) {
            ASSERT_TRUE(source(frame));
            const bool isBad = !frame.problem.empty();
            EXPECT_THAT(frame.where + (isBad ? "! " + frame.problem : ": " + ToHex(frame.bytes)), StartsWith(expected));
        }
        EXPECT_FALSE(source(frame));
    }
}

TEST(DocumentSource, CutsTheInputWhereDocumentsEnd) {
    const struct {
        const char* what;
        std::string input;
        std::vector<std::string> documents; // line: text, or that it is too long
    } cases[] = {
        {"two, with what may stand between",
         "<?xml?>\n<!-- -> > -->\n<MessageFrame>a</MessageFrame>\n\n<!-- --><MessageFrame >b</MessageFrame\n>\n<!--x",
         {"3: <MessageFrame>a</MessageFrame>", "5: <MessageFrame >b</MessageFrame\n>", "7: <!--x"}},
        {"one cut short before a good one",
         "<MessageFrame><a>\n<MessageFrame>b</MessageFrame>",
         {"1: <MessageFrame><a>\n", "2: <MessageFrame>b</MessageFrame>"}},
        {"an end tag in a comment",
         "<MessageFrame><!--</MessageFrame>--->b</MessageFrame>",
         {"1: <MessageFrame><!--</MessageFrame>--->b</MessageFrame>"}},
        {"a comment needs its dashes twice", "<!--> <MessageFrame> --><a>", {"1: <a>"}},
        {"a name that begins like it",
         "<MessageFrame><MessageFrameExt></MessageFrameExt></MessageFrame>",
         {"1: <MessageFrame><MessageFrameExt></MessageFrameExt></MessageFrame>"}},
        {"words", " words", {"1:  words"}},
        {"one that is too long",
         "<MessageFrame><!--" + std::string(MAX_DOCUMENT, '-') + "--></MessageFrame>\n<MessageFrame>",
         {"1 too long", "2: <MessageFrame>"}},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        TextInput input(row.input);
        DocumentSource source(*input);
        Document document;
        for (const std::string& expected : row.documents) {
            ASSERT_TRUE(source.Next(document));
            EXPECT_EQ(std::to_string(document.line) + (document.isTooLong ? " too long" : ": " + document.text),
                      expected);
            EXPECT_LE(document.text.size(), MAX_DOCUMENT);
        }
        EXPECT_FALSE(source.Next(document));
    }
}

// ---- frames

std::string Put(std::string hexText, size_t byte, const std::string& digits) {
    return hexText.replace(2 * byte, digits.size(), digits);
}

TEST(DecodeFrame, SaysWhereAndWhyAFrameIsBad) {
    const std::string spat = captured::spat;
    const struct {
        const char* what;
        std::string frame;
        size_t offset;
        const char* problem;
        bool isShown; // the message is there all the same
    } cases[] = {
        {"no alternative 5 of the frame", "50", 0, "no such alternative, value or length", false},
        {"light 9, the first phase's", Put(spat, 16, "90"), 16, "no such alternative, value or length", false},
        {"a size of 5 x 16384 octets", "80C500", 1, "no such alternative, value or length", false},
        {"nothing", "", 0, "ends too early", false},
        {"bytes behind the frame", spat + "0102", 102, "2 bytes left over after the frame", true},
        {"a start at 65535", Put(spat, 17, "1FFFE0"), Problem::NOWHERE, "TimeMark: 65535 is outside its constraint",
         true},
        {"an alternative of a newer edition", "8102AABB", Problem::NOWHERE,
         "MessageFrame: an alternative that is not known here", true},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        const Decoded decoded = DecodeFrame(hex(row.frame));
        ASSERT_EQ(decoded.problems.size(), 1U);
        EXPECT_EQ(decoded.problems[0].offset, row.offset);
        EXPECT_EQ(decoded.problems[0].text, row.problem);
        EXPECT_EQ(decoded.message != nullptr, row.isShown);
    }
}

TEST(DecodeFrame, NamesTheEndOfEveryFrameThatIsCutShort) {
    for (const char* whole :
         {captured::spat, encoded::spat, captured::bsm, encoded::map, encoded::rsm, encoded::rsi, encoded::extension}) {
        const Bytes bytes = hex(whole);
        EXPECT_THAT(DecodeFrame(bytes).problems, IsEmpty()) << whole;
        for (size_t size = 0; size < bytes.size(); ++size) {
            const Decoded decoded = DecodeFrame({bytes.data(), size});
            ASSERT_EQ(decoded.problems.size(), 1U) << whole << " cut to " << size;
            EXPECT_EQ(decoded.problems[0].offset, size) << whole;
            EXPECT_EQ(decoded.problems[0].text, "ends too early") << whole << " cut to " << size;
        }
    }
}

// ---- commands

TEST(Describe, TellsAbsentUnknownAndNewerApart) {
    const Written written = Described(std::string(encoded::spat) + "\n" + encoded::newerSpat);
    EXPECT_THAT(written.output, StartsWith(R"(frame 1: SPAT, 68 bytes, msgCnt 127
moy 527040 (invalid)  timeStamp 65.535 s  name "Main St"
intersection -/65535  moy 0 (day 1, 00:00)  timeStamp 59.999 s
  status: manualControlIsEnabled, noValidSPATisAvailableAtThisTime
  phase  light             timing      start   minEnd   maxEnd  likelyEnd  confidence%  nextStart  nextEnd/Dur
    255  flashing-yellow   utc             ?      0.0   3600.0     1234.5        100.0        0.1       3599.9
         dark              -               -        -        -          -            -          -            -
      0  yellow            counting      0.5      1.0        ?        1.5          0.5        2.0         30.0
intersection 7/0  moy -  timeStamp -
  status: none
  phase  light             timing      start   minEnd   maxEnd  likelyEnd  confidence%  nextStart  nextEnd/Dur
      9  unavailable       -               -        -        -          -            -          -            -
frame 2: SPAT, 19 bytes, msgCnt)"));
    EXPECT_THAT(written.output, EndsWith(R"(
      4  red               unknown         -        -        -          -            -          -            -
         dark              counting      0.0        -        -        3.0            -          -            -
)"));
    EXPECT_EQ(written.errors, "in:2: frame 2: TimeChangeDetails: an alternative that is not known here\n"
                              "2 frames, 1 bad\n");
}

TEST(Describe, NamesEveryMessageAndGoesOnBehindABadFrame) {
    std::string lines;
    for (const char* line :
         {captured::bsm, encoded::map, "50", encoded::rsm, "8102AABB", encoded::rsi, encoded::extension}) {
        lines += std::string(line) + "\n";
    }
    const Written written = Described(lines);
    EXPECT_FALSE(written.isGood);
    EXPECT_EQ(written.output, R"(frame 1: BSM, 49 bytes, msgCnt 35
frame 2: MAP, 17 bytes, msgCnt 3
frame 4: RSM, 35 bytes, msgCnt 4
frame 5: message of a newer edition, 4 bytes
frame 6: RSI, 18 bytes, msgCnt 5
frame 7: extension, 8 bytes, messageId 10, value of 3 bytes
)");
    EXPECT_EQ(written.errors, R"(in:3: frame 3: byte 0: no such alternative, value or length
in:5: frame 5: MessageFrame: an alternative that is not known here
7 frames, 2 bad
)");
}

constexpr const char* EXTENSION_XER = R"(<MessageFrame>
    <msgFrameExt>
        <messageId>10</messageId>
        <value>01 02 03</value>
    </msgFrameExt>
</MessageFrame>
)";

TEST(Encode, NamesThePlaceOfABadDocumentAndGoesOn) {
    const auto with = [](const std::string& old, const std::string& fresh) {
        std::string text = EXTENSION_XER;
        return text.replace(text.find(old), old.size(), fresh);
    };
    const struct {
        const char* what;
        std::string document;
        const char* problem;
    } cases[] = {
        {"another tag", with("<messageId>", "<messageID>"),
         "in:3: document 1: byte 41: not understood: <messageID>10</messageId>"},
        {"no hex", with("02", "zz"), "in:4: document 1: byte 82: not understood: 01 zz 03</value>"},
        {"cut short", with("</messageId>\n        <value>01 02 03</value>\n    </msgFrameExt>\n</MessageFrame>\n", ""),
         "in:3: document 1: byte 54: ends too early"},
        {"an empty list", "<MessageFrame><mapFrame><msgCnt>1</msgCnt><nodes/></mapFrame></MessageFrame>",
         "in:1: document 1: NodeList: 0 elements are outside its constraint"},
        {"out of range", with("10", "32768"), "in:1: document 1: ExtMsgID: 32768 is outside its constraint"},
        {"a control character", with("10", "1\x1B[31m"),
         "in:3: document 1: byte 41: not understood: <messageId>1.[31m</messageId>"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.what);
        const Written written = Encoded(row.document + EXTENSION_XER);
        EXPECT_FALSE(written.isGood);
        EXPECT_EQ(written.output, std::string(encoded::extension) + "\n");
        EXPECT_EQ(written.errors, std::string(row.problem) + "\n2 documents, 1 bad\n");
    }
}

} // namespace
