// Formats text.
#pragma once

#include <string>

namespace tools {

// Formats as printf does.
[[gnu::format(printf, 1, 2)]] std::string FormatText(const char* format, ...);

// Replaces each control character of ASCII or of UTF-8 (C1), which could change the terminal, by '?'.
std::string MakePlain(std::string text);

} // namespace tools
