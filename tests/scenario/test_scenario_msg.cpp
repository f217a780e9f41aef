// The message viewer, run as its user would run it.
#include <gtest/gtest.h>

#include <string>

#include "captured_frames.h"
#include "encoded_frames.h"
#include "process.h"

namespace {

const std::string EXTENSION = std::string(encoded::extension) + "\n";
const std::string MAP = std::string(encoded::map) + "\n";
const std::string EXTENSION_XER = R"(<MessageFrame>
    <msgFrameExt>
        <messageId>10</messageId>
        <value>01 02 03</value>
    </msgFrameExt>
</MessageFrame>
)";

// The text with its first `old` replaced.
std::string With(std::string text, const std::string& old, const std::string& fresh) {
    return text.replace(text.find(old), old.size(), fresh);
}

struct Case {
    std::string command; // reads the file "in"
    std::string input;
    std::string output;
    std::string errors; // without the program's name; the exit status is 1 when there are any
};

class ScenarioMsg : public testing::Test {
protected:
    std::string Path(const std::string& name) const { return m_folder.path() + "/" + name; }

    // Runs the shell's command in the folder; v2x_msg is the program. Returns the exit status.
    int Run(const std::string& command) {
        const std::string script =
            "cd " + m_folder.path() + " && v2x_msg() { " V2X_BIN "/v2x_msg \"$@\"; } && " + command;
        Process shell({"/bin/bash", "-c", script}, {}, Path("out"), Path("err"));
        const int status = shell.wait(60000);
        m_output = readFile(Path("out"));
        m_errors = readFile(Path("err"));
        for (size_t at = 0; (at = m_errors.find("v2x_msg: ", at)) != std::string::npos;) {
            m_errors.erase(at, 9);
        }
        return status;
    }

    void Check(const std::vector<Case>& cases) {
        for (const Case& row : cases) {
            SCOPED_TRACE(row.command + " < " + row.input.substr(0, 200));
            writeFile(Path("in"), row.input);
            EXPECT_EQ(Run(row.command), row.errors.empty() ? 0 : 1);
            EXPECT_EQ(m_output, row.output);
            EXPECT_EQ(m_errors, row.errors);
        }
    }

    std::string m_output;
    std::string m_errors;

private:
    TempFolder m_folder;
};

TEST_F(ScenarioMsg, ShowsEveryMessageAndGoesOnAfterABadFrame) {
    std::string lines;
    for (const std::string line : {encoded::spat, encoded::newerSpat, captured::bsm, encoded::map, "50", encoded::rsm,
                                   "8102AABB", encoded::rsi, encoded::extension}) {
        lines += line + "\n";
    }
    Check({{"v2x_msg info -f in", lines,
            R"(frame 1: SPAT, 68 bytes, msgCnt 127
moy 527040 (invalid)  timeStamp 65.535 s  name "Main St"
intersection -/65535  moy 0 (day 1, 00:00)  timeStamp 59.999 s
  status: manualControlIsEnabled, noValidSPATisAvailableAtThisTime
  phase  light            timing    start  minEnd  maxEnd  likelyEnd  confidence%  nextStart  nextEnd/Dur
    255  flashing-yellow  utc           ?     0.0  3600.0     1234.5        100.0        0.1       3599.9
         dark             -             -       -       -          -            -          -            -
      0  yellow           counting    0.5     1.0       ?        1.5          0.5        2.0         30.0
intersection 7/0  moy -  timeStamp -
  status: none
  phase  light        timing  start  minEnd  maxEnd  likelyEnd  confidence%  nextStart  nextEnd/Dur
      9  unavailable  -           -       -       -          -            -          -            -
frame 2: SPAT, 19 bytes, msgCnt 1
moy -  timeStamp -
intersection -/2  moy -  timeStamp -
  status: none
  phase  light  timing    start  minEnd  maxEnd  likelyEnd  confidence%  nextStart  nextEnd/Dur
      4  red    unknown       -       -       -          -            -          -            -
         dark   counting    0.0       -       -        3.0            -          -            -
frame 3: BSM, 49 bytes, msgCnt 35
  id                secMark(s)  position(deg)           elevation(m)  speed(m/s)  heading(deg)  size(m)      class
  3030313433313031      47.091  28.1260343,112.8799971         123.3        0.12       74.3000  1.80x5.00x-     54
  transmission  steering(deg)  acceleration(m/s2)  lateral(m/s2)  yaw(deg/s)  brakePedal  abs  traction  stability
  reverseGears           22.5                0.05           0.00        0.00  off         -    -         -
  events: none
  lights: none
frame 4: MAP, 17 bytes, msgCnt 3
timeStamp -
node 1/2  position(deg) 0.0000001,0.0000002  elevation(m) -  name "X"
frame 6: RSM, 35 bytes, msgCnt 4
id 6162636465666768  position(deg) 0.0000001,0.0000002  elevation(m) -
  ptcId  type   source  id  secMark(s)  position(deg)        elevation(m)  speed(m/s)  heading(deg)  size(m)      class
  65535  motor  video   -        0.001  0.0000003,0.0000003             -        0.06        0.0500  0.01x0.02x-      -
frame 7: message of a newer edition, 4 bytes
frame 8: RSI, 18 bytes, msgCnt 5
moy -  id 6162636465666768  position(deg) 0.0000001,0.0000002  elevation(m) -
frame 9: extension, 8 bytes, messageId 10, value of 3 bytes
)",
            R"(in:2: frame 2: TimeChangeDetails: unknown alternative
in:5: frame 5: byte 0: no such alternative, value or length
in:7: frame 7: MessageFrame: unknown alternative
9 frames, 3 bad
)"}});
}

TEST_F(ScenarioMsg, ReadsFramesInEveryForm) {
    const std::string frame1 = "frame 1: extension, 8 bytes, messageId 10, value of 3 bytes\n";
    Check({
        {"v2x_msg info -f in", "# one\n\n \t\r\n80:06-00,0a\t0x03 0X01 02\f03\r# end", frame1, ""},
        {"v2x_msg info 8006 000A:0301 0203", "", frame1, ""},
        {"v2x_msg info --one < in", "# one\n8006 000A\n\n03010203", frame1, ""},
        {"v2x_msg info --raw < in", {"\x80\x06\x00\x0A\x03\x01\x02\x03", 8}, frame1, ""},
        {"v2x_msg info --raw < in", std::string((1 << 20) + 1, 'x'), "",
         "standard input: frame 1: longer than 1048576 bytes, the most that a frame may have\n"},
        {"v2x_msg info -f in", std::string((8 << 20) + 9, ' ') + "\n" + EXTENSION, With(frame1, "1", "2"),
         "in:1: frame 1: a line longer than 8388608 characters\n2 frames, 1 bad\n"},
    });
}

TEST_F(ScenarioMsg, SaysWhereAndWhyAFrameIsBad) {
    const std::pair<std::string, std::string> cases[] = {
        {"36 6G", "character 5: 'G' is not a hexadecimal digit"},
        {"36\xE9", "character 3: byte E9 is not a hexadecimal digit"},
        {"80", "byte 1: ends too early"},
        {std::string(captured::bsm, 96), "byte 48: ends too early"},
        {"36 B", "character 4: a byte of one digit"},
        {With(captured::spat, "82300000006C", "82900000006C"), "byte 16: no such alternative, value or length"},
        {"8102AABB", "MessageFrame: unknown alternative\nin:1: frame 1: MessageFrame: cannot be shown as XER"},
    };
    for (const auto& [line, problem] : cases) {
        Check({{"v2x_msg decode -f in", line, "", "in:1: frame 1: " + problem + "\n"}});
    }
    Check({{"v2x_msg decode -f in", encoded::extension + std::string("0102"), EXTENSION_XER,
            "in:1: frame 1: byte 8: 2 bytes left over after the frame\n"}});
}

TEST_F(ScenarioMsg, SplitsAnInputIntoDocuments) {
    const std::string text = "<MessageFrame><msgFrameExt><messageId>10</messageId><value>010203</value></msgFrameExt>";
    const std::string encode = "v2x_msg encode -f in";
    Check({
        // two, with what may come between
        {encode,
         "<?xml?>\n<!-- -> > -->\n" + text + "</MessageFrame>\n\n<!-- -->" +
             With(text, "<MessageFrame", "<MessageFrame ") + "</MessageFrame\n>\n",
         EXTENSION + EXTENSION, ""},
        // one cut short before a good one
        {encode, "<MessageFrame><a>\n" + EXTENSION_XER, EXTENSION,
         "in:1: document 1: byte 14: MessageFrame: unknown element <a>\n2 documents, 1 bad\n"},
        // tags in comments
        {encode,
         "<!--> <MessageFrame> -->" + With(text, "<value>", "<!--</MessageFrame>---><value>") + "</MessageFrame>",
         EXTENSION, ""},
        // a name that begins like the frame's
        {encode, "<MessageFrame><MessageFrameExt></MessageFrameExt></MessageFrame>" + EXTENSION_XER, EXTENSION,
         "in:1: document 1: byte 14: MessageFrame: unknown element <MessageFrameExt>, did you mean <msgFrameExt>?\n"
         "2 documents, 1 bad\n"},
        // one that is too long
        {encode, "\n<MessageFrame><!--" + std::string(64 << 20, '-') + "--></MessageFrame>\n" + EXTENSION_XER,
         EXTENSION, "in:2: document 1: longer than 67108864 bytes\n2 documents, 1 bad\n"},
        // out of range
        {encode, With(EXTENSION_XER, "10", "32768"), "",
         "in:1: document 1: ExtMsgID: 32768 is outside its constraint\n"},
        // a control character
        {encode, With(EXTENSION_XER, "10", "1\x1B[31m"), "",
         "in:3: document 1: byte 41: MessageFrame/msgFrameExt: invalid value: <messageId>1.[31m</messageId>\n"},
    });
}

TEST_F(ScenarioMsg, WritesWhereItIsToldAndNeverOverItsInput) {
    const std::string twin = ": cannot be written: it is the input file\n";
    Check({
        {"v2x_msg decode -f in | v2x_msg encode", EXTENSION + MAP, EXTENSION + MAP, ""},
        {"v2x_msg encode -f in -o new && cat new", EXTENSION_XER, EXTENSION, ""},
        {"v2x_msg encode -f in -r -o - | od -An -tx1", EXTENSION_XER, " 80 06 00 0a 03 01 02 03\n", ""},
        {"chmod 600 new; ln -s new link; v2x_msg encode -f in -o link; stat -c '%a %F' new link", EXTENSION_XER,
         "600 regular file\n777 symbolic link\n", ""},
        {"cp in kept; v2x_msg encode -f in -o in || (cmp in kept; exit 1)", EXTENSION_XER, "", "in" + twin},
        {"ln in hard; v2x_msg encode -o hard < in || (cmp in kept; exit 1)", EXTENSION_XER, "", "hard" + twin},
        {"v2x_msg decode -f in >> in", EXTENSION, "", "standard output" + twin},
        {"echo old > new; (trap '' XFSZ; ulimit -f 1; for i in {1..99}; do cat in; done | v2x_msg encode -o new) || "
         "(cat new; echo *.tmp; exit 1)",
         EXTENSION_XER, "old\n*.tmp\n", "new: cannot be written: File too large\n"},
        {"v2x_msg decode -f in > /dev/full", EXTENSION, "",
         "standard output: cannot be written: No space left on device\n"},
    });
}

TEST_F(ScenarioMsg, RejectsAWrongCommandLine) {
    for (const char* const usage : {"v2x_msg", "v2x_msg info 00 --raw", "v2x_msg info 00 -f x"}) {
        EXPECT_EQ(Run(usage), 2) << usage;
    }
}

// The sender keeps the pipe open.
TEST_F(ScenarioMsg, ShowsAFrameBeforeTheNextArrives) {
    Run("coproc v2x_msg info; echo " + std::string(encoded::map) +
        " >&${COPROC[1]}; read -t 15 -r line <&${COPROC[0]}; echo \"$line\"");
    EXPECT_EQ(m_output, "frame 1: MAP, 17 bytes, msgCnt 3\n");
}

} // namespace
