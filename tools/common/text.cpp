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

std::string MakePlain(std::string text) {
    for (size_t i = 0; i < text.size(); i++) {
        const auto byte = static_cast<unsigned char>(text[i]);
        if (byte < ' ' || byte == 0x7F) {
            text[i] = '?';
        } else if (byte >= 0x80 && byte < 0xA0 && i > 0 && text[i - 1] == '\xC2') { // C1 in UTF-8
            text.replace(--i, 2, "?");
        }
    }
    return text;
}

} // namespace tools
