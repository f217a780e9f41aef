#include "common/text.h"

#include <cstdarg>
#include <cstdio>

namespace tools {

std::string FormatText(const char* format, ...) {
    va_list args;
    va_start(args, format);
    va_list measured;
    va_copy(measured, args);
    const int length = std::vsnprintf(nullptr, 0, format, measured);
    va_end(measured);
    std::string result;
    if (length > 0) {
        result.resize(static_cast<size_t>(length));
        std::vsnprintf(result.data(), result.size() + 1, format, args);
    }
    va_end(args);
    return result;
}

} // namespace tools
