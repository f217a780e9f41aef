// Converts between bytes and hexadecimal digits.
#pragma once

#include <cstdint>
#include <span>
#include <string>
#include <string_view>
#include <vector>

namespace tools {

// Parses the text and appends its bytes to `bytes`. Each byte has two digits, in upper or lower case. White space, ':',
// '-' and ',' separate bytes; "0x" may follow a separator or begin the text. Returns an empty string if the text is
// valid, otherwise the error with the number of the invalid character, counted from 1.
std::string AppendHex(std::string_view text, std::vector<uint8_t>& bytes);

// Returns two upper-case digits for each byte, without separators.
std::string ToHex(std::span<const uint8_t> bytes);

} // namespace tools
