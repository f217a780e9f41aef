// Text made with printf's conversions.
#pragma once

#include <string>

namespace tools {

[[gnu::format(printf, 1, 2)]] std::string FormatText(const char* format, ...);

} // namespace tools
