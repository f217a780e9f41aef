// Configuration trees, read from real files.
#include "v2x/v2xcfg.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <sys/stat.h>
#include <utility>
#include <vector>

#include "temp_folder.h"

namespace {

class V2xCfg : public testing::Test {
protected:
    ~V2xCfg() override { v2xcfg_ExitContext(m_root); }
    int32_t Open(const std::string& text) {
        writeFile(m_path, text);
        return v2xcfg_InitContext(&m_root, m_path.c_str());
    }

    const TempFolder m_folder;
    const std::string m_path = m_folder.path() + "/unit.cfg";
    V2X_CFGHANDLE m_root = nullptr;
};

TEST_F(V2xCfg, RejectsTextWithItsLine) {
    using std::string_literals::operator""s;
    const struct {
        std::string text;
        const char* error; // after the file name
    } rows[] = {
        {"a = 1;\nb = ;\n", ":2: syntax error"},
        {"a = 1;\n  @include \"other.cfg\"\n", ":2: @include is not supported"},
        {"a = 2147483647;\nb = 2147483648;", ":2: integer needs more than 32 bits"},
        {"a = -2147483649;", ":1: integer needs more than 32 bits"},
        {"//\n/**/a = 0x100000000;", ":2: integer needs more than 32 bits"},
        {"a = \"1\n2\";\nb = \"3\n", ":3: unterminated string"},
        {"a = \"x\\\\\"; b = \"", ":1: unterminated string"},
        {"a = { b = 1, \"x\" };", ":1: string without a key"},
        {"a = 1;\n/*/ b = 2;\n", ":2: unterminated comment"},
        {"a = 1;\n# \0"s, ":2: NUL byte"},
        {"a = " + std::string(60'000, '('), ":1: memory exhausted"}, // the parser's own limit of nesting
    };
    for (const auto& row : rows) {
        EXPECT_EQ(Open(row.text), -4) << row.text;
        EXPECT_EQ(m_root, nullptr);
        EXPECT_EQ(v2xcfg_GetErrorText(), m_path + row.error) << row.text;
    }
}

TEST_F(V2xCfg, ReadsRegularFilesOfAtMost64KiB) {
    const std::string pipe = m_folder.path() + "/pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0644), 0);
    EXPECT_EQ(v2xcfg_InitContext(&m_root, pipe.c_str()), -3);
    EXPECT_EQ(v2xcfg_GetErrorText(), pipe + ": not a regular file");
    EXPECT_EQ(Open(std::string(64 * 1024 + 1, ' ')), -3);
    EXPECT_EQ(v2xcfg_GetErrorText(), m_path + ": larger than 64 KiB");
    EXPECT_EQ(Open(std::string(64 * 1024, ' ')), 0);
}

// Every kind of value, and texts that only look like faults.
constexpr char TEXT[] = R"(yes = TRUE; no = false;
one = 1; zero = 0L; two = 2;
least = -2147483648; most = 0x7fffffffLL;
real = 99999999999.5; /* " { @include 5000000000 */ array = [1]; list = (1, "x", { deep = 7; }); // " }
group : { name = "r\x53u \"1\"\\" "/\q@include"; inner = { port = 8001 }, n99999999999 = 1; }
empty = ""; many = "first 5000000000
second"; last = 3 # { "
most32 = "12345678901234567890123456789012"; more = "123456789012345678901234567890123"; # ends here)";

TEST_F(V2xCfg, ReadsValuesByType) {
    const struct {
        const char* key;
        e_v2xcfg_type type;
        int32_t code;
        std::string expected; // the value, or the error text after the file name
    } rows[] = {
        {"zero", V2XCFG_TYPE_BOOL, 0, "0"},
        {"yes", V2XCFG_TYPE_BOOL, 0, "1"},
        {"two", V2XCFG_TYPE_BOOL, -3, ":2: two: expected true, false, 0 or 1, found 2"},
        {"least", V2XCFG_TYPE_INT32, 0, "-2147483648"},
        {"most", V2XCFG_TYPE_INT32, 0, "2147483647"},
        {"group.inner.port.x", V2XCFG_TYPE_INT32, -1, ": group.inner.port.x: not found"},
        {"group.name", V2XCFG_TYPE_STRING, 0, "rSu \"1\"\\/\\q@include"},
        {"group.name", V2XCFG_TYPE_INT32, -3, ":5: group.name: expected an integer, found a string"},
        {"many", V2XCFG_TYPE_STRING, 0, "first 5000000000\nsecond"},
        {"most32", V2XCFG_TYPE_STRING, 0, "12345678901234567890123456789012"},
        {"real", V2XCFG_TYPE_NUMBER, 0, "99999999999.500000"},
        {"least", V2XCFG_TYPE_NUMBER, 0, "-2147483648.000000"},
        {"empty", V2XCFG_TYPE_NUMBER, -3, ":6: empty: expected a number, found a string"},
        {"group", V2XCFG_TYPE_GROUP, 0, "3"},
        {"list", V2XCFG_TYPE_GROUP, -3, ":4: list: expected a group, found a list"},
        {"list", V2XCFG_TYPE_LIST, 0, "3"},
        {"list.[2].deep", V2XCFG_TYPE_INT32, 0, "7"},
        {"group.inner.port", V2XCFG_TYPE_LIST, 0, "1"},
        {"group.inner.port.[0]", V2XCFG_TYPE_INT32, 0, "8001"},
        {"empty.[0]", V2XCFG_TYPE_INT32, -3, ":6: empty: expected an integer, found a string"},
        {"empty.[1]", V2XCFG_TYPE_STRING, -1, ": empty.[1]: not found"},
        {"group", V2XCFG_TYPE_LIST, -3, ":5: group: expected a list, found a group"},
        {"more", V2XCFG_TYPE_STRING, -3, ":8: more: string of 33 characters, at most 32 are allowed"},
    };
    ASSERT_EQ(Open(TEXT), 0) << v2xcfg_GetErrorText();
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.key) + " as " + std::to_string(row.type));
        char buffer[1 + 32 + 1] = "?????";
        char* const place = buffer + 1; // unaligned
        int32_t length = 32;
        ASSERT_EQ(v2xcfg_GetNodeValue(m_root, row.type, row.key, place, &length), row.code);
        if (row.code != 0) {
            EXPECT_EQ(v2xcfg_GetErrorText(), m_path + row.expected);
            EXPECT_TRUE(std::string(place) == "????" && length == 32) << "changed by a failure";
        } else if (row.type == V2XCFG_TYPE_STRING) {
            EXPECT_EQ(std::string(place), row.expected);
            EXPECT_EQ(length, static_cast<int32_t>(row.expected.size()));
        } else if (row.type == V2XCFG_TYPE_NUMBER) {
            double number = 0;
            std::memcpy(&number, place, sizeof(number));
            EXPECT_EQ(std::to_string(number), row.expected);
        } else {
            int32_t number = 0;
            std::memcpy(&number, place, row.type == V2XCFG_TYPE_BOOL ? sizeof(bool) : sizeof(number));
            EXPECT_EQ(std::to_string(number), row.expected);
        }
    }
}

TEST_F(V2xCfg, SuggestsSimilarKeyForUnknownKey) {
    constexpr const char* KNOWN[] = {"a.Port", "a.LocalPort", "a.b.PhaseID#", "c"};
    const auto keepLast = [](void* last, e_v2xcfg_severity, const char* text) {
        *static_cast<std::string*>(last) = text;
    };
    const struct {
        std::string text;
        std::string problem; // after the file name
    } rows[] = {
        {"a = {\n LocolPrt = 1; };", ":2: a.LocolPrt: unknown key LocolPrt, did you mean LocalPort?"},
        {"a = { Port = 1; b = { PhaseID0 = 1; PhaseID255 = 1; }; }; c = { d = 1; }; A = 1;",
         ":1: A: unknown key A, did you mean a?"},
        {"a = { c = 1; };", ":1: a.c: unknown key c"},
        {"a = { b = { PhasID12 = 1; }; };", ":1: a.b.PhasID12: unknown key PhasID12, did you mean PhaseID12?"},
        {"a = { b = { PhaseID03 = 1; }; };", ":1: a.b.PhaseID03: unknown key PhaseID03, did you mean PhaseID3?"},
        {"a = { b = { PhaseID256 = 1; }; };", ":1: a.b.PhaseID256: unknown key PhaseID256"},
        {"a = ( 1 );", ":1: a: expected a group, found a list"},
    };
    for (const auto& row : rows) {
        std::string last;
        ASSERT_EQ(Open(row.text), 0);
        v2xcfg_ReportUnknownKeys(nullptr, m_root, KNOWN, std::size(KNOWN));
        v2xcfg_VisitProblems(keepLast, &last);
        EXPECT_EQ(last, m_path + row.problem);
        EXPECT_FALSE(v2xcfg_Collect(V2XCFG_WARNING, last.c_str())) << "collected twice";
        v2xcfg_ExitContext(std::exchange(m_root, nullptr));
    }
}

TEST_F(V2xCfg, OmitsWarningsAfter100ProblemsButNoError) {
    const auto countProblems = [] {
        std::vector<std::string> texts;
        for (int i = 0; i < 300; i++) {
            v2xcfg_Collect(i < 200 ? V2XCFG_WARNING : V2XCFG_ERROR, std::to_string(i).c_str());
        }
        v2xcfg_VisitProblems([](void* arg, e_v2xcfg_severity,
                                const char* text) { static_cast<std::vector<std::string>*>(arg)->emplace_back(text); },
                             &texts);
        EXPECT_EQ(texts[100], "200"); // the first error
        EXPECT_EQ(texts[199], "299");
        EXPECT_EQ(texts.back(), "more than 100 problems, further warnings are omitted");
        return testing::Test::HasFailure() ? 1 : static_cast<int>(texts.size());
    };
    EXPECT_EXIT(std::exit(countProblems()), testing::ExitedWithCode(201), "");
}

} // namespace
