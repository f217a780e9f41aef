// The log tool's frames, byte for byte, and the numbers of the tools' command lines.
#include <gtest/gtest.h>

#include "bytes.h"
#include "common/command_line.h"
#include "log_request.h"

namespace {

TEST(LogTool, ATagOfEightCharactersFillsItsField) {
    EXPECT_EQ(logtool::MakeSetRequest("12345678", 3),
              hex("A55A 04 00 0000000000000000 3200 0F00 00 02 0000 0A00 3132333435363738 0300"));
    const auto tags =
        logtool::ParseAnswer(hex("A55A 04 00 0000000000000000 3300 0F00 00 01 0000 0A00 3132333435363738 FFFF"));
    ASSERT_EQ(tags.size(), 1U);
    EXPECT_EQ(tags[0].tag + " " + logtool::FormatLevel(tags[0].level), "12345678 -1");
}

TEST(LogTool, SaysWhyAnAnswerIsInvalid) {
    const struct {
        const char* digits;
        const char* problem;
    } cases[] = {
        {"A55A 04 00 0000000000000000 3300 1900", "the answer ends inside its head"},
        {"A55A 04 00 0000000000000000 3200 0500 00 01 0000 0000", "the answer has command 50, not 51"},
        {"A55A 04 00 0000000000000000 3300 0500 00 01 0000 00", "the answer ends inside its payload"},
        {"A55A 04 00 0000000000000000 3300 0500 00 02 FDFF 0000", "the daemon answers with error -3"},
        {"A55A 04 00 0000000000000000 3300 0F00 00 01 0000 0B00 5350415400000000 0400",
         "the answer ends inside its list of tags"},
    };
    for (const auto& row : cases) {
        try {
            logtool::ParseAnswer(hex(row.digits));
            ADD_FAILURE() << row.problem;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), row.problem);
        }
    }
}

TEST(CommandLine, RejectsWhatIsNoNumberInTheRange) {
    for (const char* const good : {"0.001", "2", "3600"}) {
        EXPECT_EQ(tools::NumberInRange(0.001, 3600)(good), "") << good;
    }
    for (const std::string bad : {"nan", "inf", "-1", "0", "3600.5", "2s", "", " 2"}) {
        EXPECT_EQ(tools::NumberInRange(0.001, 3600)(bad), "'" + bad + "' is not a number from 0.001 to 3600");
    }
}

} // namespace
