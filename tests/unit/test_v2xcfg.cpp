// Configuration trees from real files, one table of texts and what they are to mean.
#include "v2x/v2xcfg.h"
#include "v2x/v2xlog.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <string>
#include <sys/stat.h>

#include "temp_folder.h"

namespace {

namespace fs = std::filesystem;
using testing::HasSubstr;

class V2xCfg : public testing::Test {
protected:
    int32_t Open(const std::string& text, V2X_CFGHANDLE& root) const {
        writeFile(path, text);
        return v2xcfg_InitContext(&root, path.c_str());
    }

    TempFolder temp;
    const fs::path folder = temp.path();
    const fs::path path = folder / "unit.cfg";
};

std::string Settings(int count) {
    std::string text;
    for (int i = 0; i < count; ++i) {
        text += "s" + std::to_string(i) + "=1;\n";
    }
    return text;
}

TEST_F(V2xCfg, RefusedTexts) {
    using std::string_literals::operator""s;
    const struct {
        std::string text;
        const char* error; // what follows the file name
    } rows[] = {
        {"a = 1;\nb = ;\n", ":2: syntax error"},
        {"a = 1;\na = 2;", ":2: duplicate setting name"},
        {"a = [1, \"x\"];", ":1: mismatched element type in array"},
        {"a = 1;\n  @include \"other.cfg\"\n", ":2: @include is not supported"},
        {"a = 2147483647;\nb = 2147483648;", ":2: 2147483648 is out of range, it needs more than 32 bits"},
        {"//\n/**/a = 0x100000000;", ":2: 0x100000000 is out of range"},
        {"a = 0xFFFFFFFF;", ":1: 0xFFFFFFFF is out of range"},
        {"a = -2147483649;", ":1: -2147483649 is out of range"},
        {"a = 9223372036854775808L;", ":1: 9223372036854775808L is out of range, it needs more than 64 bits"},
        {"a = 1e400;", ":1: 1e400 is out of range"},
        {"a = .;", ":1: '.' is not a number"},
        {"a = +-1;", ":1: '+-1' is not a number"},
        {"a = 0x-1;", ":1: '0x-1' is not a number"},
        {"a = \"1\n2\";\nb = \"3\n", ":3: string has no end"},
        {"a = { b = 1, \"x\" };", ":1: a string is no value here"},
        {"a = \"\\\"", ":1: string has no end"},
        {"a = \"\n\\x00\";", ":2: a string cannot hold \\x00"},
        {"a = 1;\n/* b = 2;\n", ":2: comment has no end"},
        {"a = 1; /*/", ":1: comment has no end"},
        {"# \0"s, ":1: NUL byte"},
        {"a = 1;\n\0b = 2;"s, ":2: NUL byte"},
        {"a = 1;\n!", ":2: unexpected character '!'"},
        {"\xef\xbb\xbf"
         "a = 1;",
         ":1: unexpected byte 0xef"},
        {"a = {\nb = (1, 2;\n};", ":3: '}' has no '{' before it"},
        {"a = {\nb = 1;\n", ":1: '{' has no end"},
        {"a = " + std::string(33, '('), ":1: nested more than 32 deep"},
        {std::string(65, 'n') + " = 1;",
         ":1: name 'nnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnnn...' has more than 64 characters"},
        {Settings(1001), ":1001: more than 1000 settings"},
    };
    for (const auto& row : rows) {
        V2X_CFGHANDLE root = nullptr;
        EXPECT_EQ(Open(row.text, root), -4) << row.text;
        EXPECT_EQ(root, nullptr);
        EXPECT_THAT(v2xcfg_GetErrorText(), testing::StartsWith(path.string() + row.error)) << row.text;
        v2xcfg_ExitContext(root);
    }
}

TEST_F(V2xCfg, Files) {
    const fs::path pipe = folder / "pipe";
    ASSERT_EQ(::mkfifo(pipe.c_str(), 0644), 0);
    const std::string limit(size_t{1024} * 1024, ' ');
    writeFile(folder / "limit", limit);
    writeFile(folder / "over", limit + ' ');
    writeFile(folder / "empty", "");
    const struct {
        fs::path path;
        int32_t code;
        const char* reason;
    } rows[] = {
        {folder / "absent", -3, "No such file or directory"},
        {pipe, -3, "not a regular file"},
        {"/dev/zero", -3, "not a regular file"},
        {folder / "over", -3, "larger than 1 MiB"},
        {folder / "limit", 0, ""},
        {folder / "empty", 0, ""},
    };
    for (const auto& row : rows) {
        V2X_CFGHANDLE root = nullptr;
        EXPECT_EQ(v2xcfg_InitContext(&root, row.path.c_str()), row.code) << row.path;
        if (row.code != 0) {
            EXPECT_EQ(v2xcfg_GetErrorText(), row.path.string() + ": " + row.reason);
            continue;
        }
        int32_t value = 0;
        EXPECT_EQ(v2xcfg_GetNodeValue(root, V2XCFG_TYPE_INT32, "a", &value, nullptr), -1);
        EXPECT_EQ(v2xcfg_GetErrorText(), row.path.string() + ": a: not found");
        v2xcfg_ExitContext(root);
    }
}

// One file that holds every kind of value, a line each.
const std::string kText = R"(yes = TRUE; no = false;
one = 1; zero = 0L; two = 2;
least = -2147483648; most = 0x7fffffffLL; octal = 010;
wide = 5000000000L; negative = -5000000000L;
real = 1.5; /* " { @include */ array = [1]; list = (1, { deep = 7; }); // " }
group : { name = "r\x53u \"1\"\\" "/\q"; inner = { port = 8001 }, }
empty = ""; many = "first
second"; last = 3 # { "
many2 = 4; # ends here)";

TEST_F(V2xCfg, Values) {
    constexpr auto kBool = V2XCFG_TYPE_BOOL;
    constexpr auto kInt = V2XCFG_TYPE_INT32;
    constexpr auto kString = V2XCFG_TYPE_STRING;
    const struct {
        const char* key;
        e_v2xcfg_type type;
        int32_t code;
        std::string expected; // the value, or what the error text ends with
    } rows[] = {
        {"zero", kBool, 0, "0"},
        {"two", kBool, -3, ":2: two: expected true, false, 0 or 1, found 2"},
        {"real", kBool, -3, ":5: real: expected a boolean, found a floating-point number"},
        {"least", kInt, 0, "-2147483648"},
        {"most", kInt, 0, "2147483647"},
        {"octal", kInt, 0, "10"},
        {"wide", kInt, -3, ":4: wide: 5000000000 is out of range, it needs more than 32 bits"},
        {"list", kString, -3, ":5: list: expected a string, found a list"},
        {"group.inner.port", kInt, 0, "8001"},
        {"group.inner.port.x", kInt, -1, ": group.inner.port.x: not found"},
        {"list.[1].deep", kInt, 0, "7"},
        {"group.name", kString, 0, "rSu \"1\"\\/\\q"},
        {"group.name", kInt, -3, ":6: group.name: expected an integer, found a string"},
        {"empty", kString, 0, ""},
        {"many", kString, 0, "first\nsecond"},
        {"last", kInt, 0, "3"},
        {"", kInt, -2, ": : empty key"},
        {"one", static_cast<e_v2xcfg_type>(4), -2, ": one: unknown type 4"},
    };
    V2X_CFGHANDLE root = nullptr;
    ASSERT_EQ(Open(kText, root), 0) << v2xcfg_GetErrorText();
    for (const auto& row : rows) {
        SCOPED_TRACE(std::string(row.key) + " as " + std::to_string(row.type));
        char place[1 + 32 + 1]; // off by one: no destination is aligned
        std::memset(place, 0x5a, sizeof(place));
        int32_t length = 32;
        ASSERT_EQ(v2xcfg_GetNodeValue(root, row.type, row.key, place + 1, &length), row.code);
        if (row.code != 0) {
            EXPECT_EQ(v2xcfg_GetErrorText(), path.string() + row.expected);
            EXPECT_EQ(place[1], 0x5a) << "the destination is left alone";
            EXPECT_EQ(length, 32);
        } else if (row.type == kString) {
            EXPECT_EQ(place + 1, row.expected);
            EXPECT_EQ(length, static_cast<int32_t>(row.expected.size()));
        } else {
            int32_t value = 0;
            std::memcpy(&value, place + 1, row.type == kBool ? sizeof(bool) : sizeof(value));
            EXPECT_EQ(std::to_string(value), row.expected);
            EXPECT_EQ(place[1 + (row.type == kBool ? sizeof(bool) : sizeof(value))], 0x5a);
        }
    }
    v2xcfg_ExitContext(root);
}

TEST_F(V2xCfg, StringsFitWholeOrNotAtAllAndNullIsRefused) {
    V2X_CFGHANDLE root = nullptr;
    ASSERT_EQ(Open("s = \"12345\";", root), 0);
    char text[6] = "old";
    int32_t length = 4;
    EXPECT_EQ(v2xcfg_GetNodeValue(root, V2XCFG_TYPE_STRING, "s", text, &length), -3);
    EXPECT_EQ(v2xcfg_GetErrorText(), path.string() + ":1: s: string of 5 characters, at most 4 are taken");
    EXPECT_STREQ(text, "old");
    EXPECT_EQ(length, 4);
    length = 5;
    EXPECT_EQ(v2xcfg_GetNodeValue(root, V2XCFG_TYPE_STRING, "s", text, &length), 0);
    EXPECT_STREQ(text, "12345");
    length = -1;
    EXPECT_EQ(v2xcfg_GetNodeValue(root, V2XCFG_TYPE_STRING, "s", text, &length), -2);
    EXPECT_EQ(v2xcfg_GetNodeValue(root, V2XCFG_TYPE_STRING, "s", text, nullptr), -2);

    EXPECT_EQ(v2xcfg_GetNodeValue(nullptr, V2XCFG_TYPE_STRING, "s", text, &length), -2);
    EXPECT_EQ(v2xcfg_GetNodeValue(root, V2XCFG_TYPE_STRING, nullptr, text, &length), -2);
    EXPECT_EQ(v2xcfg_GetNodeValue(root, V2XCFG_TYPE_STRING, "s", nullptr, &length), -2);
    EXPECT_EQ(v2xcfg_ExitContext(root), 0);
    EXPECT_EQ(v2xcfg_ExitContext(nullptr), 0);
    EXPECT_EQ(v2xcfg_InitContext(nullptr, path.c_str()), -2);
    EXPECT_EQ(v2xcfg_InitContext(&root, nullptr), -2);
    EXPECT_THAT(v2xcfg_GetErrorText(), HasSubstr("null argument"));
}

TEST_F(V2xCfg, RefusalsAreLoggedButNotMissingKeys) {
    V2X_LOGHANDLE tag = nullptr;
    ASSERT_EQ(v2xlog_AddTag("VCFG", &tag), 0);
    ASSERT_EQ(v2xlog_Init((folder / "unit.log").c_str(), "VCFG", 1, 0, 0), 0);
    V2X_CFGHANDLE root = nullptr;
    int32_t value = 0;
    EXPECT_EQ(Open("a = ;", root), -4);
    ASSERT_EQ(Open("a = true;", root), 0);
    EXPECT_EQ(v2xcfg_GetNodeValue(root, V2XCFG_TYPE_INT32, "b", &value, nullptr), -1);
    EXPECT_EQ(v2xcfg_GetNodeValue(root, V2XCFG_TYPE_INT32, "a", &value, nullptr), -3);
    v2xcfg_ExitContext(root);
    std::ifstream log(folder / "unit.log");
    for (const char* const expected : {":1: syntax error", ":1: a: expected an integer, found a boolean"}) {
        std::string line;
        std::getline(log, line);
        EXPECT_THAT(line, HasSubstr(" E VCFG src/platform/cfg/v2xcfg.cpp:"));
        EXPECT_THAT(line, testing::EndsWith(path.string() + expected));
    }
    EXPECT_EQ(log.peek(), std::ifstream::traits_type::eof());
}

} // namespace
