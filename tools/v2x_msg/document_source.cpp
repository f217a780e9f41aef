#include "document_source.h"

#include <algorithm>
#include <string_view>

namespace msg {
namespace {

constexpr std::string_view SPACE = " \t\r\n\v\f";
constexpr std::string_view COMMENT_START = "<!--";
constexpr std::string_view COMMENT_END = "-->";

// Returns true if the tag, from "<" to ">", consists of `name` and white space. `name` includes the "<".
bool IsTag(std::string_view tag, std::string_view name) {
    return tag.starts_with(name) && tag.find_first_not_of(SPACE, name.size()) == tag.size() - 1;
}

// Returns the size of the white space, comments and declarations at the start of the text.
size_t MeasureLead(std::string_view text) {
    size_t lead = 0;
    for (;;) {
        lead = std::min(text.find_first_not_of(SPACE, lead), text.size());
        const std::string_view rest = text.substr(lead);
        const bool isComment = rest.starts_with(COMMENT_START);
        if (!isComment && !rest.starts_with("<?")) {
            return lead;
        }
        const std::string_view mark = isComment ? COMMENT_END : ">";
        const size_t end = rest.find(mark, isComment ? COMMENT_START.size() : 0);
        if (end == std::string_view::npos) {
            return lead;
        }
        lead += end + mark.size();
    }
}

size_t CountLines(std::string_view text) {
    return static_cast<size_t>(std::ranges::count(text, '\n'));
}

} // namespace

size_t DocumentSource::FindEnd() {
    for (;;) {
        if (m_isComment) {
            const size_t end = m_text.find(COMMENT_END, m_scanned);
            if (end == std::string::npos) {
                m_scanned = std::max(m_scanned, m_text.size() - std::min(m_text.size(), COMMENT_END.size() - 1));
                return end;
            }
            m_scanned = end + COMMENT_END.size();
            m_isComment = false;
        }
        m_scanned = std::min(m_text.find('<', m_scanned), m_text.size());
        std::string_view tag = std::string_view(m_text).substr(m_scanned);
        if (tag.starts_with(COMMENT_START)) {
            m_isComment = true;
            m_scanned += COMMENT_START.size();
            continue;
        }
        tag = tag.substr(0, tag.find('>') + 1); // empty if the tag is incomplete
        if (tag.empty()) {
            return std::string::npos;
        }
        if (IsTag(tag, "</MessageFrame")) {
            return m_scanned + tag.size();
        }
        const bool isStart = IsTag(tag, "<MessageFrame");
        if (isStart && m_isOpen) {
            return m_scanned;
        }
        m_isOpen = m_isOpen || isStart;
        m_scanned += tag.size();
    }
}

bool DocumentSource::ReadMore() {
    const std::string_view block = m_input.ReadBlock();
    m_text += block;
    return !block.empty();
}

void DocumentSource::Discard(size_t size) {
    m_line += CountLines(std::string_view(m_text).substr(0, size));
    m_text.erase(0, size);
    m_scanned -= std::min(m_scanned, size);
}

bool DocumentSource::Next(Document& document) {
    document = {};
    m_scanned = 0;
    m_isComment = false;
    m_isOpen = false;
    size_t end = 0;
    while ((end = FindEnd()) == std::string::npos) {
        if (m_text.size() > MAX_DOCUMENT) {
            if (!document.isTooLong) {
                document.line = m_line + CountLines({m_text.data(), MeasureLead(m_text)});
                document.isTooLong = true;
            }
            Discard(m_scanned > 0 ? m_scanned : m_text.size());
        }
        if (!ReadMore()) {
            end = m_text.size();
            break;
        }
    }
    if (!document.isTooLong) {
        const size_t lead = MeasureLead({m_text.data(), end});
        document.line = m_line + CountLines({m_text.data(), lead});
        document.isTooLong = end - lead > MAX_DOCUMENT;
        document.text.assign(m_text, lead, document.isTooLong ? 0 : end - lead);
    }
    Discard(end);
    return document.isTooLong || !document.text.empty();
}

} // namespace msg
