// Splits an input into XER documents, one after another, and holds no more than one of them.
#pragma once

#include <cstddef>
#include <string>

#include "common/files.h"

namespace msg {

struct Document {
    std::string text;       // empty when it is too long
    size_t line = 1;        // line of the input in which the document begins
    bool isTooLong = false; // longer than MAX_DOCUMENT
};

inline constexpr size_t MAX_DOCUMENT = size_t{64} << 20;

// A document ends with the end tag of MessageFrame, before the start tag of the next document, or with the input. White
// space, comments and XML declarations before a document are skipped. The decoder cannot tell where a bad document
// ends: it takes the documents after an unknown element as parts of that element.
class DocumentSource {
public:
    explicit DocumentSource(tools::InputFile& input) : m_input(input) {}

    // Delivers the next document; false when there are no more. Throws as InputFile does.
    bool Next(Document& document);

private:
    // Scans m_text from m_scanned on. Returns the end of the document, or npos when more input is needed.
    size_t FindEnd();
    // Appends what the input delivers; false at its end.
    bool ReadMore();
    // Removes `size` bytes from the start of m_text.
    void Drop(size_t size);

    tools::InputFile& m_input;
    std::string m_text; // read, but not yet delivered
    size_t m_line = 1;  // of the input, where m_text begins
    size_t m_scanned = 0;
    bool m_isComment = false; // m_scanned is inside a comment
    bool m_isOpen = false;    // the document's start tag lies before m_scanned
};

} // namespace msg
