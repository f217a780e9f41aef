#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include "fixture.h"
#include "spat_conv_stack_interface.h"
#include "v2x/v2xlog.h"

namespace {

using testing::Contains;
using testing::IsEmpty;
using testing::Not;
using testing::SizeIs;

const std::string HEAD_5 = "A55A 01 02 1112131415161718 3200 0500 09";
const std::string HEAD_15 = "A55A 01 02 1112131415161718 3200 0F00 09";

class LogControl : public fakes::Fixture {
protected:
    LogControl() {
        fakes::setLogLevel(V2XLOG_WARN);
        v2xspatconv_StackInterfaceInit();
        fakes::sent.clear();
    }
    // The bytes of the answer; empty when there is none.
    static std::vector<uint8_t> ask(const std::string& digits) {
        fakes::sent.clear();
        fakes::logLines.clear();
        fakes::receive("SPAT_C_LOGTOOL", hex(digits));
        if (fakes::sent.empty()) {
            return {};
        }
        EXPECT_EQ(fakes::sent[0].socket, "answer");
        return fakes::sent[0].bytes;
    }
};

TEST_F(LogControl, ReportsEveryTagInOrder) {
    V2X_LOGHANDLE handle = nullptr;
    for (const char* tag : {"SPAT", "1743"}) {
        v2xlog_AddTag(tag, &handle);
    }
    handle->level = V2XLOG_TRACE;
    EXPECT_EQ(ask(HEAD_5 + "01 FFFF 0000"), hex("A55A 01 02 1112131415161718 3300 1900 09  01 0000 1400"
                                                "5350415400000000 0300  3137343300000000 0700"));
}

TEST_F(LogControl, SetsOneLevelOrAll) {
    EXPECT_EQ(ask(HEAD_15 + "02 0500 0A00 51554F5200000000 0700"),
              hex("A55A 01 02 1112131415161718 3300 0F00 09 02 0000 0A00 51554F5200000000 0700"));
    EXPECT_THAT(fakes::journal, Contains("log.SetTagLevel QUOR 7"));
    EXPECT_THAT(ask(HEAD_15 + "02 0000 0A00 414C4C0000000000 0400"), SizeIs(32));
    EXPECT_THAT(fakes::journal, Contains("log.SetAllTagLevel 4"));
    ask(HEAD_15 + "02 0000 0A00 414C4C0000000001 0500"); // the last byte is not 0, so the name is not "ALL"
    EXPECT_THAT(fakes::journal, Not(Contains("log.SetAllTagLevel 5")));
}

// Tag SINF, whose level the request itself may change, writes the line.
TEST_F(LogControl, LogsChangesWithTheSender) {
    const struct {
        int32_t level; // before the request
        const char* request;
        const char* line; // empty: none
    } cases[] = {
        {4, "51554F5200000000 0700", "log tool request from 127.0.0.9:4000: level 7 for QUOR"},
        {4, "414C4C0000000000 0200", "log tool request from 127.0.0.9:4000: level 2 for ALL"},
        {3, "53494E4600000000 0400", "log tool request from 127.0.0.9:4000: level 4 for SINF"},
        {3, "51554F5200000000 0700", ""},
        {3, "53494E4600000000 0800", ""}, // out of range
    };
    for (const auto& row : cases) {
        fakes::setLogLevel(row.level);
        fakes::logLines.clear();
        fakes::receive("SPAT_C_LOGTOOL", hex(HEAD_15 + "02 0000 0A00" + row.request), {0x7F000009, 4000});
        std::erase_if(fakes::logLines, [](const fakes::LogLine& line) { return line.level < V2XLOG_INFO; });
        ASSERT_EQ(fakes::logLines.size(), row.line[0] == '\0' ? 0U : 1U) << row.request;
        EXPECT_EQ(fakes::logLines.empty() ? "" : fakes::logLines[0].text, row.line);
    }
}

TEST_F(LogControl, DoesNotAnswerFailedRequests) {
    fakes::unknownTags = {"NONE", "LONGNAME"};
    const struct {
        const char* what;
        std::string request;
        std::string line;
    } cases[] = {
        {"unknown tag", HEAD_15 + "02 0000 0A00 4E4F4E4500000000 0400", "exec v2xlog_GetTagHandle error ret=-3"},
        {"a name without terminating zero", HEAD_15 + "02 0000 0A00 4C4F4E474E414D45 0400",
         "exec v2xlog_GetTagHandle error ret=-3"},
        {"level out of range", HEAD_15 + "02 0000 0A00 51554F5200000000 0800", "exec v2xlog_SetTagLevel error ret=-3"},
        {"level out of range, all", HEAD_15 + "02 0000 0A00 414C4C0000000000 FFFF",
         "exec v2xlog_SetAllTagLevel error ret=-3"},
        {"an answer instead of a request", "A55A 01 02 1112131415161718 3300 0500 00 01 0000 0000",
         "get error data,type pStr->m_cmdType=51"},
        {"no bytes", "", "log tool request of 0 bytes is too short"},
        {"no command", "A55A 01 02 1112131415161718 3200 0000 00", "log tool request of 17 bytes is too short"},
        {"a truncated entry", HEAD_15 + "02 0000 0A00 51554F52 00",
         "log tool request of 27 bytes contains no log level"},
        {"sets nothing", HEAD_5 + "02 0000 0000", "log tool request of 22 bytes contains no log level"},
    };
    for (const auto& row : cases) {
        EXPECT_THAT(ask(row.request), IsEmpty()) << row.what;
        EXPECT_EQ(fakes::logged(row.line).size(), 1U) << row.what;
    }
    EXPECT_EQ(countsOf("log_tool"), (PathCounts{{"not_served", 6}, {"too_short", 2}, {"wrong_command", 1}}));
}

// The daemon ignores the length fields of a request.
TEST_F(LogControl, ServesRequestsWithWrongLengthFields) {
    EXPECT_EQ(ask(HEAD_5 + "09 0700 0300 AABBCC"), hex("A55A 01 02 1112131415161718 3300 0500 09 09 0000 0300 AABBCC"));
    EXPECT_EQ(ask(HEAD_5 + "02 0000 FFFF 51554F5200000000 0700"),
              hex("A55A 01 02 1112131415161718 3300 0500 09 02 0000 FFFF 51554F5200000000 0700"));
    EXPECT_THAT(fakes::journal, Contains("log.SetTagLevel QUOR 7"));
    EXPECT_THAT(ask(HEAD_15 + "01 0000 FF7F"), SizeIs(22)) << "an answer without tags";
}

} // namespace
