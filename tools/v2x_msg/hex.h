// Bytes written as hexadecimal digits.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace msg {

// Appends the bytes that the text holds: two digits each, in upper or lower case, with any number of white space, ':',
// '-' and ',' around a byte, and "0x" before a digit that follows none. Returns what is wrong with the text and at
// which character, counted from 1; nothing when all is well.
std::string AppendHex(std::string_view text, std::vector<uint8_t>& bytes);

// Two upper-case digits a byte, with nothing between.
std::string ToHex(std::span<const uint8_t> bytes);

// The text as it may be shown on a terminal: what is not printable ASCII becomes '.', and at most 40 characters.
std::string Printable(std::string_view text);

} // namespace msg
