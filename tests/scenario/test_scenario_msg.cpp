// The message viewer, run as its user would run it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "captured_frames.h"
#include "common/capture_file.h"
#include "encoded_frames.h"
#include "process.h"

namespace {

const std::string EXTENSION = std::string(encoded::extension) + "\n";
const std::string RAW("\x80\x06\x00\x0A\x03\x01\x02\x03", 8); // EXTENSION in bytes
const std::string MAP = std::string(encoded::map) + "\n";
const std::string EXTENSION_XER = R"(<MessageFrame>
    <msgFrameExt>
        <messageId>10</messageId>
        <value>01 02 03</value>
    </msgFrameExt>
</MessageFrame>
)";
const std::string EXTENSION_JSON = "{\"msgFrameExt\":{\"messageId\":10,\"value\":\"010203\"}}\n";

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
            R"(SPAT, 68 bytes, msgCnt 127
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
SPAT, 19 bytes, msgCnt 1
newer edition: new alternative in TimeChangeDetails (decoded as none)
moy -  timeStamp -
intersection -/2  moy -  timeStamp -
  status: none
  phase  light  timing    start  minEnd  maxEnd  likelyEnd  confidence%  nextStart  nextEnd/Dur
      4  red    unknown       -       -       -          -            -          -            -
         dark   counting    0.0       -       -        3.0            -          -            -
BSM, 49 bytes, msgCnt 35
  id                secMark(s)  position(deg)           elevation(m)  speed(m/s)  heading(deg)  size(m)      class
  3030313433313031      47.091  28.1260343,112.8799971         123.3        0.12       74.3000  1.80x5.00x-     54
  transmission  steering(deg)  acceleration(m/s2)  lateral(m/s2)  yaw(deg/s)  brakePedal  abs  traction  stability
  reverseGears           22.5                0.05           0.00        0.00  off         -    -         -
  events: none
  lights: none
MAP, 17 bytes, msgCnt 3
timeStamp -
node 1/2  position(deg) 0.0000001,0.0000002  elevation(m) -  name "X"
RSM, 35 bytes, msgCnt 4
id 6162636465666768  position(deg) 0.0000001,0.0000002  elevation(m) -
  ptcId  type   source  id  secMark(s)  position(deg)        elevation(m)  speed(m/s)  heading(deg)  size(m)      class
  65535  motor  video   -        0.001  0.0000003,0.0000003             -        0.06        0.0500  0.01x0.02x-      -
message of a newer edition, 4 bytes
newer edition: new alternative in MessageFrame (decoded as none)
RSI, 18 bytes, msgCnt 5
moy -  id 6162636465666768  position(deg) 0.0000001,0.0000002  elevation(m) -
extension, 8 bytes, messageId 10, value of 3 bytes
)",
            R"(in:5: frame 5: byte 0: no such alternative, value or length
in:7: frame 7: MessageFrame: unknown alternative
9 frames, 2 bad
)"}});
}

TEST_F(ScenarioMsg, ReadsFramesInEveryForm) {
    const std::string frame1 = "extension, 8 bytes, messageId 10, value of 3 bytes\n";
    Check({
        {"v2x_msg info -f in", "# one\n\n \t\r\n80:06-00,0a\t0x03 0X01 02\f03\r# end", frame1, ""},
        {"v2x_msg info 8006 000A:0301 0203", "", frame1, ""},
        {"v2x_msg info --one < in", "# one\n8006 000A\n\n03010203", frame1, ""},
        {"v2x_msg info --raw < in", RAW + RAW, frame1 + "byte 8: " + frame1, ""},
        {"(head -c 11; sleep 0.1; cat) < in | v2x_msg decode --raw | v2x_msg encode --raw | cmp - in", RAW + RAW, "",
         ""},
        {"v2x_msg info --raw in", RAW + "\x7F" + RAW, frame1,
         "in: byte 8: frame 2: byte 0: no such alternative, value or length; the bytes from here on cannot be split "
         "into "
         "frames\n2 frames, 1 bad\n"},
        {"v2x_msg info --raw in", RAW + RAW.substr(0, 3), frame1,
         "in: byte 8: frame 2: byte 3: ends too early\n2 frames, 1 bad\n"},
        {"cp in 8006; v2x_msg info in 8006 - < in", "\xEF\xBB\xBF" + EXTENSION, frame1 + frame1 + frame1, ""},
        {"v2x_msg info in", "<\n" + EXTENSION + EXTENSION, frame1 + frame1,
         "in:1: frame 1: character 1: '<' is not a hexadecimal digit\n3 frames, 1 bad\n"},
        {"v2x_msg info 80g6", "", "",
         "argument: frame 1: character 3: 'g' is not a hexadecimal digit; there is no file with this name either\n"},
        {"v2x_msg info --udp-port 9 in; exit 1", EXTENSION, frame1, "in: no capture: --udp-port has no effect\n"},
        {"v2x_msg info -f in", std::string((8 << 20) + 9, ' ') + "\n" + EXTENSION, frame1,
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
        {"8102AABB", "MessageFrame: unknown alternative\n"
                     "in:1: frame 1: newer edition: new alternative in MessageFrame (decoded as none)\n"
                     "in:1: frame 1: MessageFrame: cannot be shown as XER"},
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
         "in:1: document 1: MessageFrame/msgFrameExt/messageId: 32768 is outside its constraint\n"},
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
        {"echo old > new; v2x_msg encode -o new missing || (cat new; exit 1)", "", "old\n",
         "missing: cannot be opened: No such file or directory\n"},
        {"v2x_msg decode -f in > /dev/full", EXTENSION, "",
         "standard output: cannot be written: No space left on device\n"},
        {"yes $(cat in) | v2x_msg decode | head -1; exit ${PIPESTATUS[1]}", EXTENSION, "<MessageFrame>\n", ""},
    });
}

TEST_F(ScenarioMsg, AdvisesForAnInputOfAnotherKind) {
    const struct {
        std::string input;
        std::string info; // the answers
        std::string encode;
        std::string raw;
    } rows[] = {
        {"", "empty", "empty", "empty"},
        {EXTENSION, "", "looks like frames in hex; v2x_msg decode and v2x_msg info read them",
         "looks like hex; leave out --raw"},
        {EXTENSION_XER, "looks like XER; v2x_msg encode makes frames from it", "",
         "looks like XER; v2x_msg encode makes frames from it"},
        {" " + EXTENSION_JSON, "looks like JSON; v2x_msg encode makes frames from it", "",
         "looks like JSON; v2x_msg encode makes frames from it"},
        {RAW, "looks like binary; if these are the bytes of frames, use --raw",
         "looks like binary; if these are the bytes of frames, use v2x_msg decode --raw", ""},
        {"\xD4\xC3\xB2\xA1 0123456789", "in: truncated dump file",
         "looks like a capture; v2x_msg decode and v2x_msg info read it", "looks like a capture; leave out --raw"},
        {"\x1F\x8B\x08 0123456789", "compressed by gzip; pipe it through zcat",
         "compressed by gzip; pipe it through zcat", "compressed by gzip; pipe it through zcat"},
        {std::string("\xFF\xFE\x38\x00", 4), "looks like text in UTF-16; convert it with iconv -f UTF-16 -t UTF-8",
         "looks like text in UTF-16; convert it with iconv -f UTF-16 -t UTF-8", "frame 1: byte 1: no such alternative"},
        {"none", "frame 1: character 1: 'n' is not a hexadecimal digit",
         "neither XER, which begins with '<', nor JSON, which begins with '{'", "frame 1: byte 0: no such alternative"},
    };
    for (const auto& row : rows) {
        writeFile(Path("in"), row.input);
        const std::pair<std::string, std::string> commands[] = {
            {"info", row.info}, {"encode", row.encode}, {"info --raw", row.raw}};
        for (const auto& [command, answer] : commands) {
            SCOPED_TRACE(command + " < " + row.input);
            EXPECT_EQ(Run("v2x_msg " + command + " in"), answer.empty() ? 0 : 1);
            EXPECT_EQ(m_errors.empty(), answer.empty());
            EXPECT_THAT(m_errors, testing::HasSubstr(answer));
            EXPECT_EQ(m_output.empty(), !answer.empty());
        }
    }
    const std::string line = "extension, 8 bytes, messageId 10, value of 3 bytes\n";
    Check(
        {{R"(printf '\324\303\262\241\2\0\4\0\0\0\0\0\0\0\0\0\377\377\0\0\151\0\0\0' > usb; v2x_msg info in . missing usb in)",
          EXTENSION, line + line,
          ".: a directory; name the files in it\nmissing: cannot be opened: No such file or directory\n"
          "usb: link type 105 is not supported\n"}});
}

TEST_F(ScenarioMsg, ConvertsJsonAndSkipsUnknownElementsOnDemand) {
    const std::string misspelt = With(EXTENSION_XER, "<value>", "<valu>1</valu>\n<value>");
    const std::string unknown = "MessageFrame/msgFrameExt: unknown element <valu>, did you mean <value>?\n";
    Check({
        {"v2x_msg decode --json in", EXTENSION, EXTENSION_JSON, ""},
        {"v2x_msg encode in",
         "\xEF\xBB\xBF" + EXTENSION_JSON + "\n" + With(EXTENSION_JSON, "10", "1x") + EXTENSION_JSON,
         EXTENSION + EXTENSION, "in:3: document 2: byte 29: not JSON\n3 documents, 1 bad\n"},
        {"v2x_msg encode in", "{\n", "",
         "in:1: document 1: byte 0: not JSON; an object must be one line, as jq -c writes it\n"},
        {"(printf '\\n\\n\\n\\n'; sleep 0.1; cat in) | v2x_msg encode", EXTENSION_JSON, EXTENSION, ""},
        {"v2x_msg encode in", misspelt, "", "in:4: document 1: byte 75: " + unknown},
        {"v2x_msg decode in | tr -d '\\n' | sed 's/<.spatFrame>/<moyy\\/>&/' | v2x_msg encode --skip-unknown 2>&1",
         encoded::spat,
         "v2x_msg: standard input:1: document 1: skipped: MessageFrame/spatFrame: unknown element <moyy>, did you mean "
         "<moy>?\n" +
             std::string(encoded::spat) + "\n",
         ""},
    });
}

TEST_F(ScenarioMsg, FiltersAndCountsTypes) {
    std::string bad;
    for (int i = 0; i < 12; ++i) {
        bad += "x\n";
    }
    Check({
        {"v2x_msg info --type map,ext in", MAP + captured::bsm + "\n" + EXTENSION,
         "MAP, 17 bytes, msgCnt 3\ntimeStamp -\nnode 1/2  position(deg) 0.0000001,0.0000002  elevation(m) -  name "
         "\"X\"\n"
         "extension, 8 bytes, messageId 10, value of 3 bytes\n",
         ""},
        {"v2x_msg info --summary in 2>&1 | tail -7", EXTENSION + bad + MAP + EXTENSION,
         "type                            frames         bytes\n"
         "MAP                                  1            17\n"
         "extension                            2            16\n"
         "all                                  3            33\n"
         "bad frames                          12\n"
         "v2x_msg: 2 more errors\nv2x_msg: 15 frames, 12 bad\n",
         ""},
    });
}

// Bytes of a reply of the stack application, little-endian.
std::string MakeReply(char count, const std::string& items, char more = 0) {
    const auto size = static_cast<char>(items.size());
    const std::string head = {'\xA5', 'Z', 4, 0, 0, 0, 0, 0, 0, 0, 0, 0, 21, 0, static_cast<char>(size + 11 + more),
                              0,      0};
    return head + std::string{11, 0, 0, 0, count, 0, 0, 0, size, 0, 0} + items;
}

TEST_F(ScenarioMsg, ReadsTheFramesOfACapture) {
    constexpr v2xpub_address_t STACK = {0x7F000001, 20010};
    constexpr v2xpub_address_t DAEMON = {0x7F000001, 20002};
    const std::string item = std::string("\x08\x00", 2) + RAW;
    const std::string cutItem = std::string("\x01\x00", 2) + RAW.substr(0, 1);
    const std::string payloads[] = {
        "no reply",
        MakeReply(1, item),
        MakeReply(3, item + cutItem + item),
        MakeReply(2, item + "\x09"),
        MakeReply(1, item, 1),
        "K" + RAW,
        MakeReply(1, item + item),
    };
    {
        tools::CaptureWriter writer(Path("in.pcap"));
        uint64_t time = 1795401475'123456;
        for (const std::string& payload : payloads) {
            const auto* const bytes = reinterpret_cast<const uint8_t*>(payload.data());
            const bool isOther = payload.front() == 'K';
            writer.Write({time, isOther ? v2xpub_address_t{1, 47} : STACK, DAEMON, {bytes, payload.size()}});
            time += 1'000'000;
        }
    }
    const std::string ext = ": extension, 8 bytes, messageId 10, value of 3 bytes\n";
    const std::string errors =
        ": packet 3: frame 3: byte 1: ends too early\n"
        "in.pcap: packet 4: frame 6: item 2 of 2 exceeds the reply\n"
        "in.pcap: packet 5: frame 7: a reply with 21 bytes after its header, which announces 22\n"
        "in.pcap: packet 7: frame 9: 10 bytes after the last item of the reply\n"
        "9 frames, 4 bad\n";
    Check({
        {"v2x_msg info in.pcap", "",
         "packet 2, 2026-11-23T02:37:56.123456Z" + ext + "packet 3, 2026-11-23T02:37:57.123456Z" + ext +
             "packet 3, 2026-11-23T02:37:57.123456Z" + ext + "packet 4, 2026-11-23T02:37:58.123456Z" + ext +
             "packet 7, 2026-11-23T02:38:01.123456Z" + ext,
         "in.pcap" + errors},
        {"cat in.pcap | v2x_msg decode --json --udp-port 47 --offset 1", "",
         "{\"packet\":6,\"time\":\"2026-11-23T02:38:00.123456Z\",\"MessageFrame\":" +
             EXTENSION_JSON.substr(0, EXTENSION_JSON.size() - 1) + "}\n",
         ""},
        {"v2x_msg decode --udp-port 47 --offset 1 in.pcap | tee xer | v2x_msg encode && head -1 xer", "",
         EXTENSION + "<!-- packet 6, 2026-11-23T02:38:00.123456Z -->\n", ""},
        {"v2x_msg info --summary in.pcap --udp-port 47 --offset 1 | tail -2; v2x_msg info --udp-port 48 in.pcap", "",
         "first packet  2026-11-23T02:38:00.123456Z\nlast packet   2026-11-23T02:38:00.123456Z\n",
         "in.pcap: 7 packets, no datagram of port 48; --udp-port N --offset K reads other datagrams, ports: 20002 (7), "
         "20010 (6), 47 (1)\n"},
        {"head -c 170 in.pcap | v2x_msg info", "", "packet 2, 2026-11-23T02:37:56.123456Z" + ext,
         "standard input: truncated dump file; tried to read 16 header bytes, only got 12; the packets before are "
         "used\n"},
    });
}

TEST_F(ScenarioMsg, RejectsAWrongCommandLine) {
    for (const char* const usage : {"v2x_msg", "v2x_msg info 00 -f x", "touch x; v2x_msg info x 00",
                                    "v2x_msg info --offset 1", "v2x_msg info --type spad"}) {
        EXPECT_EQ(Run(usage), 2) << usage;
    }
    EXPECT_EQ(Run("v2x_msg show"), 2);
    EXPECT_THAT(m_errors, testing::StartsWith("unknown subcommand 'show'; the subcommands are: decode info encode\n"));
}

// The sender keeps the pipe open.
TEST_F(ScenarioMsg, ShowsAFrameBeforeTheNextArrives) {
    Run("coproc v2x_msg info; echo " + std::string(encoded::map) +
        " >&${COPROC[1]}; read -t 15 -r line <&${COPROC[0]}; echo \"$line\"");
    EXPECT_EQ(m_output, "MAP, 17 bytes, msgCnt 3\n");
}

} // namespace
