// The log tool's frames, byte for byte.
#include <gtest/gtest.h>

#include "bytes.h"
#include "log_request.h"

namespace {

TEST(LogTool, Answers) {
    const auto tags = logtool::ReadAnswer(
        hex("A55A 04 00 0000000000000000 3300 0F00 00 01 0000 0A00  3132333435363738 FFFF")); // a name without an end
    ASSERT_EQ(tags.size(), 1U);
    EXPECT_EQ(tags[0].tag + " " + logtool::LevelText(tags[0].level), "12345678 -1");

    const struct {
        const char* digits;
        const char* what;
    } bad[] = {
        {"A55A 04 00 0000000000000000 3300 1900", "the answer ends inside its head"},
        {"A55A 04 00 0000000000000000 3200 0500 00 01 0000 0000", "the answer is of another kind: command 50"},
        {"A55A 04 00 0000000000000000 3300 0500 00 01 0000 00", "the answer ends inside its payload"},
        {"A55A 04 00 0000000000000000 3300 0500 00 02 FDFF 0000", "the answer says -3"},
        {"A55A 04 00 0000000000000000 3300 0F00 00 01 0000 0B00 5350415400000000 0400",
         "the answer ends inside its list of tags"},
    };
    for (const auto& row : bad) {
        try {
            logtool::ReadAnswer(hex(row.digits));
            ADD_FAILURE() << row.what;
        } catch (const std::runtime_error& error) {
            EXPECT_STREQ(error.what(), row.what);
        }
    }
}

} // namespace
