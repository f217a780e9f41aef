#include "common/text.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>

namespace tools {

std::string FormatText(const char* format, ...) {
    char start[256]; // holds most texts
    va_list args;
    va_start(args, format);
    const int length = std::vsnprintf(start, sizeof start, format, args);
    va_end(args);
    std::string result(start, std::min(static_cast<size_t>(std::max(length, 0)), sizeof start - 1));
    if (result.size() < static_cast<size_t>(std::max(length, 0))) {
        result.resize(static_cast<size_t>(length));
        va_start(args, format);
        std::vsnprintf(result.data(), result.size() + 1, format, args);
        va_end(args);
    }
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
