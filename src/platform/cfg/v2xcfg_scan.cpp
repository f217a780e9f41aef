#include "v2xcfg_scan.h"

#include <algorithm>
#include <array>
#include <charconv>
#include <cstdarg>
#include <cstdint>
#include <cstdio>
#include <limits>
#include <system_error>

namespace {

constexpr size_t kMaxDepth = 32;
constexpr size_t kMaxName = 64;
constexpr int kMaxSettings = 1000;
constexpr int kMaxShown = 40; // characters of a token in a reason

// Of the C locale, whatever the process has set.
bool IsDigit(char c) {
    return c >= '0' && c <= '9';
}
bool IsLetter(char c) {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z');
}
bool IsBlank(char c) {
    return c == ' ' || c == '\t' || c == '\r' || c == '\n' || c == '\f';
}
bool IsNameStart(char c) {
    return IsLetter(c) || c == '*';
}
bool IsNamePart(char c) {
    return IsNameStart(c) || IsDigit(c) || c == '-' || c == '_';
}
bool IsNumberStart(char c) {
    return IsDigit(c) || c == '+' || c == '-' || c == '.';
}
bool IsNumberPart(char c) {
    return IsNumberStart(c) || IsLetter(c) || c == '_';
}

enum class NumberFault { kNone, kMalformed, kTooLarge };

NumberFault FaultOf(std::from_chars_result result, const char* end) {
    if (result.ec == std::errc::result_out_of_range) {
        return NumberFault::kTooLarge;
    }
    return result.ec == std::errc{} && result.ptr == end ? NumberFault::kNone : NumberFault::kMalformed;
}

NumberFault CheckFloat(std::string_view token) {
    double value = 0;
    return FaultOf(std::from_chars(token.data(), token.data() + token.size(), value), token.data() + token.size());
}

NumberFault CheckInteger(std::string_view token, int base, bool wide) {
    int64_t value = 0;
    const char* const end = token.data() + token.size();
    const NumberFault fault = FaultOf(std::from_chars(token.data(), end, value, base), end);
    if (fault != NumberFault::kNone || wide) {
        return fault;
    }
    const bool fits = value >= std::numeric_limits<int32_t>::min() && value <= std::numeric_limits<int32_t>::max();
    return fits ? NumberFault::kNone : NumberFault::kTooLarge;
}

NumberFault CheckNumber(std::string_view token, bool& wide) {
    for (wide = false; token.ends_with('L') && token.size() > 1; token.remove_suffix(1)) {
        wide = true;
    }
    if (token.starts_with("0x") || token.starts_with("0X")) {
        const bool sign = token.substr(2).starts_with('-');
        return sign ? NumberFault::kMalformed : CheckInteger(token.substr(2), 16, wide);
    }
    if (token.starts_with('+') && !token.substr(1).starts_with('-')) {
        token.remove_prefix(1);
    }
    return token.find_first_of(".eE") == std::string_view::npos ? CheckInteger(token, 10, wide) : CheckFloat(token);
}

class Scanner {
public:
    Scanner(std::string_view text, v2xcfg_fault& fault) : m_text(text), m_fault(fault) {}

    bool ScanAll() {
        while (m_at < m_text.size()) {
            if (!Token()) {
                return false;
            }
        }
        return m_depth == 0 || Refuse(m_open[m_depth - 1].line, "'%c' has no end", m_open[m_depth - 1].bracket);
    }

    int32_t Settings() const { return m_settings; }

private:
    struct Bracket {
        char bracket;
        unsigned line;
    };

    __attribute__((format(printf, 3, 4))) bool Refuse(unsigned line, const char* format, ...);
    bool Token();
    bool String();
    bool BlockComment();
    bool Name();
    bool Number();
    bool Punctuation(char c);
    bool Open(char bracket);
    bool Close(char bracket, char opening);

    bool StringFits() const;
    bool StartsWith(std::string_view what) const { return m_text.substr(m_at).starts_with(what); }
    void Skip(size_t count);
    size_t RunLength(bool (*part)(char)) const;

    const std::string_view m_text;
    v2xcfg_fault& m_fault;
    size_t m_at = 0;
    unsigned m_line = 1;
    int32_t m_settings = 0;
    char m_before = ';'; // the token before: its character, '"' for a string, 'x' for a name or a number
    size_t m_depth = 0;
    std::array<Bracket, kMaxDepth> m_open{};
};

bool Scanner::Refuse(unsigned line, const char* format, ...) {
    m_fault.line = line;
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(m_fault.reason, sizeof(m_fault.reason), format, arguments);
    va_end(arguments);
    return false;
}

void Scanner::Skip(size_t count) {
    const std::string_view skipped = m_text.substr(m_at, count);
    m_line += static_cast<unsigned>(std::count(skipped.begin(), skipped.end(), '\n'));
    m_at += skipped.size();
}

size_t Scanner::RunLength(bool (*part)(char)) const {
    const auto start = m_text.begin() + static_cast<std::ptrdiff_t>(m_at);
    return static_cast<size_t>(std::find_if_not(start, m_text.end(), part) - start);
}

bool Scanner::Token() {
    const char c = m_text[m_at];
    if (IsBlank(c)) {
        Skip(RunLength(IsBlank));
        return true;
    }
    if (StartsWith("/*")) {
        return BlockComment();
    }
    if (StartsWith("//") || c == '#') {
        Skip(std::min(m_text.find('\n', m_at), m_text.size()) - m_at);
        return true;
    }
    if (c == '"') {
        return String();
    }
    if (IsNameStart(c)) {
        return Name();
    }
    return IsNumberStart(c) ? Number() : Punctuation(c);
}

bool Scanner::BlockComment() {
    const size_t end = m_text.find("*/", m_at + 2);
    if (end == std::string_view::npos) {
        return Refuse(m_line, "comment has no end");
    }
    Skip(end + 2 - m_at);
    return true;
}

// libconfig loses the memory of a string that stands where it expects none.
bool Scanner::StringFits() const {
    if (m_before == ',') {
        return m_depth > 0 && m_open[m_depth - 1].bracket != '{';
    }
    return std::string_view("=:([\"").find(m_before) != std::string_view::npos;
}

// A backslash takes the next character with it only where libconfig looks at that: before a quote and a backslash.
bool Scanner::String() {
    if (!StringFits()) {
        return Refuse(m_line, "a string is no value here");
    }
    size_t at = m_at + 1;
    for (; at < m_text.size() && m_text[at] != '"'; ++at) {
        if (m_text[at] != '\\') {
            continue;
        }
        const std::string_view escape = m_text.substr(at, 4);
        if (escape == "\\x00" || escape == "\\X00") {
            Skip(at - m_at);
            return Refuse(m_line, "a string cannot hold \\x00");
        }
        if (escape.starts_with("\\\"") || escape.starts_with("\\\\")) {
            ++at;
        }
    }
    if (at >= m_text.size()) {
        return Refuse(m_line, "string has no end");
    }
    Skip(at + 1 - m_at);
    m_before = '"';
    return true;
}

bool Scanner::Name() {
    const size_t length = RunLength(IsNamePart);
    if (length > kMaxName) {
        return Refuse(m_line, "name '%.*s...' has more than %zu characters", kMaxShown, &m_text[m_at], kMaxName);
    }
    Skip(length);
    m_before = 'x';
    return true;
}

bool Scanner::Number() {
    const std::string_view token = m_text.substr(m_at, RunLength(IsNumberPart));
    const int shown = static_cast<int>(std::min<size_t>(token.size(), kMaxShown));
    bool wide = false;
    switch (CheckNumber(token, wide)) {
    case NumberFault::kMalformed:
        return Refuse(m_line, "'%.*s' is not a number", shown, token.data());
    case NumberFault::kTooLarge:
        return Refuse(m_line, "%.*s is out of range, it needs more than %d bits", shown, token.data(), wide ? 64 : 32);
    case NumberFault::kNone:
        break;
    }
    Skip(token.size());
    m_before = 'x';
    return true;
}

bool Scanner::Punctuation(char c) {
    constexpr std::string_view kPairs[] = {"{}", "[]", "()"};
    for (const std::string_view pair : kPairs) {
        if (c == pair[0]) {
            return Open(c);
        }
        if (c == pair[1]) {
            return Close(c, pair[0]);
        }
    }
    if ((c == '=' || c == ':') && ++m_settings > kMaxSettings) {
        return Refuse(m_line, "more than %d settings", kMaxSettings);
    }
    if (StartsWith("@include")) {
        return Refuse(m_line, "@include is not supported");
    }
    if (std::string_view("=:,;").find(c) == std::string_view::npos) {
        const bool printable = c > ' ' && c < '\x7f';
        return printable ? Refuse(m_line, "unexpected character '%c'", c)
                         : Refuse(m_line, "unexpected byte 0x%02x", static_cast<unsigned char>(c));
    }
    Skip(1);
    m_before = c;
    return true;
}

bool Scanner::Open(char bracket) {
    if (m_depth == kMaxDepth) {
        return Refuse(m_line, "nested more than %zu deep", kMaxDepth);
    }
    m_open[m_depth++] = {bracket, m_line};
    Skip(1);
    m_before = bracket;
    return true;
}

bool Scanner::Close(char bracket, char opening) {
    if (m_depth == 0 || m_open[m_depth - 1].bracket != opening) {
        return Refuse(m_line, "'%c' has no '%c' before it", bracket, opening);
    }
    --m_depth;
    Skip(1);
    m_before = bracket;
    return true;
}

} // namespace

bool v2xcfg_Scan(std::string_view text, v2xcfg_fault& fault, int32_t& settings) {
    // libconfig takes its text as a C string.
    const size_t nul = text.find('\0');
    if (nul != std::string_view::npos) {
        const auto end = text.begin() + static_cast<std::ptrdiff_t>(nul);
        fault = {1 + static_cast<unsigned>(std::count(text.begin(), end, '\n')), "NUL byte"};
        return false;
    }
    Scanner scanner(text, fault);
    const bool isTaken = scanner.ScanAll();
    settings = scanner.Settings();
    return isTaken;
}
