// Splits an input into XER documents. Stores only one document at a time.
#pragma once

#include <cstddef>
#include <string>

#include "common/files.h"

namespace msg {

struct Document {
    std::string text;       // empty if the document is too long
    size_t line = 1;        // the line of the input in which the document begins
    bool isTooLong = false; // the document is longer than MAX_DOCUMENT
};

inline constexpr size_t MAX_DOCUMENT = size_t{64} << 20; // bytes

// A document ends after the end tag of MessageFrame, before the next start tag of MessageFrame, or at the end of the
// input. The class skips white space, comments and XML declarations before a document. The class finds the end of a
// document itself, because the decoder takes all documents after an unknown element for parts of that element.
class DocumentSource {
public:
    // The input must outlive the source.
    explicit DocumentSource(tools::InputFile& input) : m_input(input) {}

    // Reads the next document. Returns false at the end of the input. Throws std::runtime_error if reading fails.
    bool Next(Document& document);

private:
    // Scans m_text from m_scanned. Returns the end of the document, or npos if more input is needed.
    size_t FindEnd();
    // Appends a block of the input to m_text. Returns false at the end of the input.
    bool ReadMore();
    // Removes `size` bytes from the start of m_text.
    void Discard(size_t size);

    tools::InputFile& m_input;
    std::string m_text;       // the input after the last document, as far as it has been read
    size_t m_line = 1;        // the line of the input in which m_text begins
    size_t m_scanned = 0;     // FindEnd has scanned this many bytes of m_text
    bool m_isComment = false; // m_scanned is inside a comment
    bool m_isOpen = false;    // the document's start tag is before m_scanned
};

} // namespace msg
