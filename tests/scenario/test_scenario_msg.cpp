// The message viewer, run as its user would run it.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <string>

#include "captured_frames.h"
#include "encoded_frames.h"
#include "process.h"

namespace {

using testing::HasSubstr;

struct Ended {
    int status;
    std::string output;
    std::string errors;
};

// Runs the shell's command in the folder; v2x_msg is the program.
Ended RunShell(const TempFolder& folder, const std::string& command) {
    const std::string out = folder.path() + "/out";
    const std::string err = folder.path() + "/err";
    const std::string script = "cd " + folder.path() + " && v2x_msg() { " V2X_BIN "/v2x_msg \"$@\"; } && " + command;
    Process shell({"/bin/bash", "-c", script}, {}, out, err);
    const int status = shell.wait(20000);
    return {status, readFile(out), readFile(err)};
}

TEST(ScenarioMsg, ReadsAndWritesWhereItIsTold) {
    const TempFolder folder;
    writeFile(folder.path() + "/two.hex", std::string("# capture\n") + encoded::extension + "\n" + encoded::map + "\n");
    writeFile(folder.path() + "/map.bin",
              std::string("\x10\x18\x08\x0B\x10\x00\x10\x00\x23\x5A\x4E\x90\x16\xB4\x9D\x20\x10", 17));
    const std::string extension = std::string(encoded::extension) + "\n";
    const std::string map = std::string(encoded::map) + "\n";
    const struct {
        std::string command;
        int status;
        std::string output;
    } cases[] = {
        {"v2x_msg info 8006 000A:0301 0203", 0, "frame 1: extension, 8 bytes, messageId 10, value of 3 bytes\n"},
        {"v2x_msg info --raw < map.bin", 0, "frame 1: MAP, 17 bytes, msgCnt 3\n"},
        {"fold -w 6 two.hex | sed -n '/^1018/,$p' | v2x_msg info --one", 0, "frame 1: MAP, 17 bytes, msgCnt 3\n"},
        {"v2x_msg decode -f two.hex | v2x_msg encode", 0, extension + map},
        {"v2x_msg decode -f map.bin --raw > map.xer; v2x_msg encode -f map.xer -r -o map2.bin && cmp map.bin map2.bin",
         0, ""},
        {"v2x_msg info 50 | cat; exit ${PIPESTATUS[0]}", 1, ""},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.command);
        const Ended ended = RunShell(folder, row.command);
        EXPECT_EQ(ended.status, row.status) << ended.errors;
        EXPECT_EQ(ended.output, row.output);
    }
}

TEST(ScenarioMsg, SaysWhatFailedAndEndsWithItsStatus) {
    const TempFolder folder;
    writeFile(folder.path() + "/bsm.hex", std::string(captured::bsm) + "\n5\n");
    const struct {
        std::string command;
        int status;
        std::string error;
    } cases[] = {
        {"v2x_msg decode -f bsm.hex", 1,
         "v2x_msg: bsm.hex:2: frame 2: character 1: a byte of one digit\nv2x_msg: 2 frames, 1 bad\n"},
        {"v2x_msg info < /dev/null", 1, "v2x_msg: no frame in the input\n"},
        {"v2x_msg info -f absent", 1, "v2x_msg: absent: cannot be opened: No such file or directory\n"},
        {"v2x_msg info -f .", 1, "v2x_msg: .: cannot be read: Is a directory\n"},
        {"v2x_msg decode -f bsm.hex > /dev/full", 1,
         "v2x_msg: standard output: cannot be written: No space left on device\n"},
        {"yes $(head -1 bsm.hex) 2> /dev/null | (v2x_msg info; echo $? >&2) | head -1 > /dev/null", 0,
         "v2x_msg: standard output: cannot be written: Broken pipe\n1\n"},
        {"(trap '' XFSZ; ulimit -f 1; v2x_msg decode " + std::string(captured::bsm) + " > bsm.xer)", 1,
         "v2x_msg: standard output: cannot be written: File too large\n"},
        {"v2x_msg encode -o no/such", 1, "v2x_msg: no/such: cannot be opened: No such file or directory\n"},
    };
    for (const auto& row : cases) {
        SCOPED_TRACE(row.command);
        const Ended ended = RunShell(folder, row.command);
        EXPECT_EQ(ended.status, row.status);
        EXPECT_EQ(ended.errors, row.error);
    }
    for (const char* const usage : {"v2x_msg", "v2x_msg show", "v2x_msg decode --nix", "v2x_msg info 00 --raw",
                                    "v2x_msg info 00 -f x", "v2x_msg info --one --raw"}) {
        const Ended ended = RunShell(folder, usage);
        EXPECT_EQ(ended.status, 2) << usage;
        EXPECT_THAT(ended.errors, HasSubstr("Run with --help")) << usage;
    }
}

// A frame is shown as soon as it is there, though its sender has not finished.
TEST(ScenarioMsg, ShowsAFrameBeforeTheNextIsThere) {
    const TempFolder folder;
    const Ended ended = RunShell(folder, "coproc v2x_msg info; echo " + std::string(encoded::map) +
                                             " >&${COPROC[1]}; read -t 15 -r line <&${COPROC[0]}; echo \"$line\"");
    EXPECT_EQ(ended.output, "frame 1: MAP, 17 bytes, msgCnt 3\n");
}

} // namespace
