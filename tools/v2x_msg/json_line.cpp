#include "json_line.h"

#include <algorithm>
#include <string>

namespace msg {
namespace {

constexpr int MAX_DEPTH = 32;
constexpr std::string_view NUL_ESCAPE = "\\u0000";
static_assert(NUL_MARK.size() == NUL_ESCAPE.size(), "the offset of an error must not change");

bool IsSpace(char character) {
    return character == ' ' || character == '\t' || character == '\r' || character == '\n';
}

// Checks a copy of the line before cJSON parses it.
class LineCheck {
public:
    explicit LineCheck(std::string_view line) : m_text(line) {}

    // Returns the line with marks instead of the escapes of NUL. Throws InvalidJson for a character that cJSON accepts,
    // although it is not JSON, and for a line that is nested too deeply.
    std::string Run() {
        for (m_at = 0; m_at < m_text.size(); ++m_at) {
            const auto character = static_cast<uint8_t>(m_text[m_at]);
            const bool isControl = character < ' ' && (m_isInText || !IsSpace(m_text[m_at]));
            if (isControl || m_text[m_at] == NUL_MARK[0]) {
                throw InvalidJson({m_at, "not a character of JSON"});
            }
            if (character == '"') {
                m_isInText = !m_isInText;
            } else if (m_isInText) {
                ReadEscape();
            } else {
                CountDepth();
            }
        }
        return std::move(m_text);
    }

private:
    // Moves to the last character of an escape.
    void ReadEscape() {
        if (m_text[m_at] == '\\') {
            if (m_text.compare(m_at, NUL_ESCAPE.size(), NUL_ESCAPE) == 0) {
                m_text.replace(m_at, NUL_MARK.size(), NUL_MARK);
                m_at += NUL_MARK.size() - 1;
            } else {
                ++m_at;
            }
        }
    }

    void CountDepth() {
        const char character = m_text[m_at];
        m_depth += character == '{' || character == '[' ? 1 : character == '}' || character == ']' ? -1 : 0;
        if (m_depth > MAX_DEPTH) {
            throw InvalidJson({m_at, "nested deeper than " + std::to_string(MAX_DEPTH) + " levels"});
        }
    }

    std::string m_text;
    size_t m_at = 0;
    bool m_isInText = false; // between quotes
    int m_depth = 0;
};

} // namespace

std::string RestoreNul(std::string_view text, std::string_view nul) {
    std::string restored;
    for (size_t at = 0; at < text.size(); ++at) {
        const bool isMark = text[at] == NUL_MARK[0];
        restored += isMark ? nul : text.substr(at, 1);
        at += isMark ? NUL_MARK.size() - 1 : 0;
    }
    return restored;
}

tools::Json ParseJsonLine(std::string_view line) {
    const std::string text = LineCheck(line).Run();
    const char* end = text.data();
    tools::Json json(cJSON_ParseWithLengthOpts(text.data(), text.size(), &end, false));
    const auto parsed = static_cast<size_t>(end - text.data());
    if (json == nullptr) {
        throw InvalidJson({parsed, "not JSON"});
    }
    const auto rest = std::find_if_not(text.begin() + static_cast<ptrdiff_t>(parsed), text.end(), IsSpace);
    if (rest != text.end()) {
        throw InvalidJson({static_cast<size_t>(rest - text.begin()), "text after the object"});
    }
    return json;
}

} // namespace msg
