// Counts frames or documents, and writes errors and notes to standard error.
#pragma once

#include <cstddef>
#include <string>

#include "codec.h"
#include "common/files.h"

namespace msg {

inline constexpr const char* PROGRAM = "v2x_msg";

// Writes at most ten lines and counts the others.
class LimitedLines {
public:
    // `nouns` names the lines: "errors". Each line appears after the text that `output` has received before.
    LimitedLines(const char* nouns, tools::OutputFile& output) : m_nouns(nouns), m_output(output) {}

    void Print(const std::string& line);

    // Writes the number of the lines that were not written.
    void Finish() const;

private:
    const char* m_nouns;
    tools::OutputFile& m_output;
    size_t m_count = 0;
};

class Report {
public:
    // `noun` is "frame" or "document". `output` must outlive the report.
    Report(const char* noun, tools::OutputFile& output);

    // Call this for each frame or document, before Error and Note.
    void Begin();

    // Reports an error or a note of the current frame or document. `where` is the input and the line or packet.
    void Error(const std::string& where, const Problem& problem);
    void Note(const std::string& where, const std::string& text);

    // Report an error or a note of an input. The text begins with the input's name.
    void InputError(const std::string& text);
    void InputNote(const std::string& text);

    size_t CountBad() const { return m_bad; }

    // Writes the totals. Returns true if there was at least one frame or document and there was no error.
    bool Finish() const;

private:
    std::string Title() const;

    const char* m_noun;
    tools::OutputFile& m_output;
    LimitedLines m_errors;
    LimitedLines m_notes;
    size_t m_count = 0;
    size_t m_bad = 0;
    bool m_isBad = false;          // the current frame or document has an error
    bool m_hasInputErrors = false; // an input has an error
};

} // namespace msg
