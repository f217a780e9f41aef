#include "common/hex.h"

#include <array>

#include "common/text.h"

namespace tools {
namespace {

enum : uint8_t { OTHER = 0xFF, SEPARATOR = 0xFE };

// The class of each character: the value of a digit, SEPARATOR or OTHER.
constexpr std::array<uint8_t, 256> CLASSES = [] {
    std::array<uint8_t, 256> classes{};
    classes.fill(OTHER);
    for (const char separator : std::string_view(" \t\r\n\v\f:-,")) {
        classes[static_cast<uint8_t>(separator)] = SEPARATOR;
    }
    for (uint8_t digit = 0; digit < 10; ++digit) {
        classes[static_cast<uint8_t>('0' + digit)] = digit;
    }
    for (uint8_t digit = 10; digit < 16; ++digit) {
        classes[static_cast<uint8_t>('A' + digit - 10)] = digit;
        classes[static_cast<uint8_t>('a' + digit - 10)] = digit;
    }
    return classes;
}();

constexpr char DIGITS[] = "0123456789ABCDEF";

std::string MakeError(size_t index, const std::string& reason) {
    return "character " + std::to_string(index + 1) + ": " + reason;
}

std::string MakeDigitError(std::string_view text, size_t index) {
    const char found = text[index];
    const bool isPrintable = found > ' ' && found <= '~';
    const std::string shown = FormatText(isPrintable ? "'%c'" : "byte %02hhX", found);
    return MakeError(index, shown + " is not a hexadecimal digit");
}

} // namespace

std::string AppendHex(std::string_view text, std::vector<uint8_t>& bytes) {
    const auto classify = [&](size_t index) {
        return index < text.size() ? CLASSES[static_cast<uint8_t>(text[index])] : uint8_t{SEPARATOR};
    };
    bool isFirst = true; // no digit since the last separator
    for (size_t index = 0; index < text.size();) {
        const uint8_t high = classify(index);
        if (high == SEPARATOR) {
            isFirst = true;
            ++index;
        } else if (isFirst && high == 0 && index + 1 < text.size() && (text[index + 1] | 0x20) == 'x') {
            isFirst = false;
            index += 2;
            if (classify(index) == SEPARATOR) {
                return MakeError(index - 2, "0x without a digit");
            }
        } else if (high == OTHER) {
            return MakeDigitError(text, index);
        } else if (const uint8_t low = classify(index + 1); low == OTHER) {
            return MakeDigitError(text, index + 1);
        } else if (low == SEPARATOR) {
            return MakeError(index, "a byte of one digit");
        } else {
            bytes.push_back(static_cast<uint8_t>(high << 4 | low));
            isFirst = false;
            index += 2;
        }
    }
    return "";
}

std::string ToHex(std::span<const uint8_t> bytes) {
    std::string text;
    text.reserve(2 * bytes.size());
    for (const uint8_t byte : bytes) {
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 15];
    }
    return text;
}

} // namespace tools
