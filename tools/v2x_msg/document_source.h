// The XER documents of an input, one after another, without holding more than one of them.
#pragma once

#include <cstddef>
#include <string>

#include "input.h"

namespace msg {

struct Document {
    std::string text;
    size_t line = 1;        // of the input, where the text begins
    bool isTooLong = false; // the text is cut at MAX_DOCUMENT
};

inline constexpr size_t MAX_DOCUMENT = size_t{64} << 20;

// A document ends with the end tag of MessageFrame, before the start tag of the next one, or with the input. White
// space, comments and XML declarations before it are passed over.
class DocumentSource {
public:
    explicit DocumentSource(Input& input) : m_input(input) {}

    // Hands out the next document; false when there are no more. Throws as Input does.
    bool Next(Document& document);

private:
    enum class Token { none, space, text, comment, declaration, startTag, endTag, otherTag };

    Token Read();
    Token ReadMarkup();
    // Appends the next byte to the token and returns it, or END.
    int Take();

    Input& m_input;
    int m_ahead = NOT_READ; // a byte that was read and not used
    std::string m_token;
    Token m_kind = Token::none;
    bool m_isKept = false;  // the token is the next document's
    bool m_isCut = false;   // the token is cut at MAX_DOCUMENT
    size_t m_tokenLine = 1; // where the token begins
    size_t m_line = 1;      // where reading is

    static constexpr int NOT_READ = -2;
};

} // namespace msg
