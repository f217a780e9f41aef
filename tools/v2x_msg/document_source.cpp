#include "document_source.h"

#include <string_view>

namespace msg {
namespace {

constexpr std::string_view SPACE = " \t\r\n\v\f";
constexpr std::string_view COMMENT_START = "<!--";

// The tag's name is `name`; what may follow it within the tag is white space.
bool IsTag(std::string_view tag, std::string_view name) {
    return tag.starts_with(name) && tag.find_first_not_of(SPACE, name.size()) == tag.size() - 1 && tag.ends_with('>');
}

} // namespace

int DocumentSource::Take() {
    const int byte = m_ahead == NOT_READ ? m_input.Get() : m_ahead;
    m_ahead = NOT_READ;
    if (byte == Input::END) {
        return byte;
    }
    m_line += byte == '\n' ? 1 : 0;
    if (m_token.size() < MAX_DOCUMENT) {
        m_token += static_cast<char>(byte);
    } else {
        m_isCut = true;
    }
    return byte;
}

// From "<" to ">", or to "-->" for a comment; or to the end of the input.
DocumentSource::Token DocumentSource::ReadMarkup() {
    size_t dashes = 0; // directly before this byte, those of "<!--" left out
    for (int byte = Take(); byte != Input::END; byte = Take()) {
        const bool isComment = m_token.starts_with(COMMENT_START);
        if (byte == '-') {
            dashes += isComment && m_token.size() > COMMENT_START.size() ? 1 : 0;
        } else if (byte == '>' && isComment && dashes >= 2) {
            return Token::comment;
        } else {
            dashes = 0;
        }
        if (byte != '>' || isComment) {
            continue;
        }
        if (m_token.starts_with("<?")) {
            return Token::declaration;
        }
        return IsTag(m_token, "<MessageFrame")    ? Token::startTag
               : IsTag(m_token, "</MessageFrame") ? Token::endTag
                                                  : Token::otherTag;
    }
    return Token::text;
}

DocumentSource::Token DocumentSource::Read() {
    m_token.clear();
    m_tokenLine = m_line;
    m_isCut = false;
    if (Take() == Input::END) {
        return Token::none;
    }
    if (m_token == "<") {
        return ReadMarkup();
    }
    do {
        m_ahead = m_input.Get();
    } while (m_ahead != '<' && Take() != Input::END);
    return m_token.find_first_not_of(SPACE) == std::string::npos ? Token::space : Token::text;
}

bool DocumentSource::Next(Document& document) {
    document.text.clear();
    document.isTooLong = false;
    bool isBegun = false;
    bool isOpen = false;
    for (;;) {
        if (!m_isKept) {
            m_kind = Read();
        }
        m_isKept = false;
        const bool isLead = m_kind == Token::space || m_kind == Token::comment || m_kind == Token::declaration;
        if (m_kind == Token::none) {
            return isBegun;
        }
        if (isLead && !isBegun) {
            continue;
        }
        if (m_kind == Token::startTag && isOpen) {
            m_isKept = true;
            return true;
        }
        if (!isBegun) {
            isBegun = true;
            document.line = m_tokenLine;
        }
        isOpen = isOpen || m_kind == Token::startTag;
        document.isTooLong = document.isTooLong || m_isCut || document.text.size() + m_token.size() > MAX_DOCUMENT;
        if (!document.isTooLong) {
            document.text += m_token;
        }
        if (m_kind == Token::endTag) {
            return true;
        }
    }
}

} // namespace msg
