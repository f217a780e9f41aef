// Formats text as printf does.
#pragma once

#include <string>

namespace tools {

[[gnu::format(printf, 1, 2)]] std::string FormatText(const char* format, ...);

} // namespace tools
