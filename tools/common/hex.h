// Bytes written as hexadecimal digits.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

// Appends the bytes that the text holds. A byte is two digits, in upper or lower case. White space, ':', '-' and ','
// may separate bytes; the first byte and each one after a separator may begin with "0x". Returns the error with its
// character, counted from 1; empty when the text is valid.
std::string AppendHex(std::string_view text, std::vector<uint8_t>& bytes);

// Two upper-case digits a byte, without separators.
std::string ToHex(std::span<const uint8_t> bytes);

} // namespace tools
