#include "v2xcfg_scan.h"

#include <algorithm>
#include <charconv>
#include <cstdint>
#include <string>
#include <system_error>

namespace {

constexpr std::string_view BLANKS = " \t\r\n\f";
constexpr std::string_view NAME_START = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz*";
constexpr std::string_view NAME_PART = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz*0123456789-_";

struct Token {
    size_t length;
    char kind;                   // ' ' for blanks and comments, else the token's first character
    const char* fault = nullptr; // reason to reject the token; null for a valid token
};

bool Contains(std::string_view set, char c) {
    return set.find(c) != std::string_view::npos;
}

// Returns the number of characters at the start of `text` that are in `set`.
size_t CountLeading(std::string_view text, std::string_view set) {
    return std::min(text.find_first_not_of(set), text.size());
}

Token ScanComment(std::string_view text) {
    if (!text.starts_with("/*")) {
        return {std::min(text.find('\n'), text.size()), ' '};
    }
    const size_t end = text.find("*/", 2);
    return end == std::string_view::npos ? Token{0, ' ', "unterminated comment"} : Token{end + 2, ' '};
}

Token ScanString(std::string_view text) {
    size_t end = 1;
    while (end < text.size() && text[end] != '"') {
        const std::string_view rest = text.substr(end);
        end += rest.starts_with("\\\"") || rest.starts_with("\\\\") ? 2 : 1;
    }
    return end < text.size() ? Token{end + 1, '"'} : Token{0, '"', "unterminated string"};
}

// Scans a number, or a single character that is a token of its own.
Token ScanNumber(std::string_view text) {
    const bool isHex = text.starts_with("0x") || text.starts_with("0X");
    const size_t prefix = isHex ? 2 : CountLeading(text.substr(0, 1), "+");
    int32_t value = 0;
    const auto [end, error] = std::from_chars(text.data() + prefix, text.data() + text.size(), value, isHex ? 16 : 10);
    const size_t length = error == std::errc::invalid_argument ? 0 : static_cast<size_t>(end - text.data());
    if (text.substr(length).starts_with('.')) { // floating-point
        return {length + CountLeading(text.substr(length), ".0123456789"), text[0]};
    }
    const bool isTooLarge = error == std::errc::result_out_of_range;
    return {std::max<size_t>(length, 1), text[0], isTooLarge ? "integer needs more than 32 bits" : nullptr};
}

Token ScanToken(std::string_view text) {
    const char first = text[0];
    if (Contains(BLANKS, first)) {
        return {CountLeading(text, BLANKS), ' '};
    }
    if (text.starts_with("/*") || text.starts_with("//") || first == '#') {
        return ScanComment(text);
    }
    if (first == '"') {
        return ScanString(text);
    }
    if (Contains(NAME_START, first)) {
        return {CountLeading(text, NAME_PART), first};
    }
    if (text.starts_with("@include")) {
        return {0, first, "@include is not supported"};
    }
    return ScanNumber(text);
}

} // namespace

std::optional<v2xcfg_fault> v2xcfg_Scan(std::string_view text) {
    const auto faultAt = [text](size_t at, const char* reason) {
        const std::string_view before = text.substr(0, at);
        return v2xcfg_fault{1 + static_cast<unsigned>(std::count(before.begin(), before.end(), '\n')), reason};
    };
    const size_t nul = text.find('\0');
    if (nul != std::string_view::npos) {
        return faultAt(nul, "NUL byte");
    }
    std::string brackets;    // the brackets that are open at `at`, outermost first
    char previousKind = ';'; // kind of the previous token that is not blank; initially that of a separator
    for (size_t at = 0; at < text.size();) {
        const Token token = ScanToken(text.substr(at));
        const bool isElement = previousKind == ',' && (brackets.ends_with('[') || brackets.ends_with('('));
        if (token.fault != nullptr) {
            return faultAt(at, token.fault);
        }
        if (token.kind == '"' && !isElement && !Contains("=:([\"", previousKind)) {
            return faultAt(at, "string without a key");
        }
        if (Contains("{[(", token.kind)) {
            brackets += token.kind;
        } else if (Contains("}])", token.kind) && !brackets.empty()) {
            brackets.pop_back();
        }
        previousKind = token.kind == ' ' ? previousKind : token.kind;
        at += token.length;
    }
    return std::nullopt;
}
