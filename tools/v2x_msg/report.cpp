#include "report.h"

#include <cstdio>

#include "common/text.h"

namespace msg {
namespace {

constexpr size_t MAX_LINES = 10;

void Print(tools::OutputFile& output, const std::string& line) {
    output.Flush();
    std::fprintf(stderr, "%s: %s\n", PROGRAM, tools::MakePlain(line).c_str());
}

} // namespace

void LimitedLines::Print(const std::string& line) {
    if (m_count++ < MAX_LINES) {
        msg::Print(m_output, line);
    }
}

void LimitedLines::Finish() const {
    if (m_count > MAX_LINES) {
        msg::Print(m_output, std::to_string(m_count - MAX_LINES) + " more " + m_nouns);
    }
}

Report::Report(const char* noun, tools::OutputFile& output)
    : m_noun(noun), m_output(output), m_errors("errors", output), m_notes("notes", output) {}

void Report::Begin() {
    ++m_count;
    m_isBad = false;
}

std::string Report::Title() const {
    return std::string(m_noun) + " " + std::to_string(m_count);
}

void Report::Error(const std::string& where, const Problem& problem) {
    m_bad += m_isBad ? 0 : 1;
    m_isBad = true;
    const bool isKnown = problem.offset != Problem::UNKNOWN_OFFSET;
    m_errors.Print(where + ": " + Title() + ": " + (isKnown ? "byte " + std::to_string(problem.offset) + ": " : "") +
                   problem.text);
}

void Report::Note(const std::string& where, const std::string& text) {
    m_notes.Print(where + ": " + Title() + ": " + text);
}

void Report::InputError(const std::string& text) {
    m_hasInputErrors = true;
    m_errors.Print(text);
}

void Report::InputNote(const std::string& text) {
    m_notes.Print(text);
}

bool Report::Finish() const {
    m_notes.Finish();
    m_errors.Finish();
    if (m_count == 0 && !m_hasInputErrors) {
        Print(m_output, std::string("no ") + m_noun + " in the input");
    } else if (m_bad != 0 && m_count > 1) {
        Print(m_output, std::to_string(m_count) + " " + m_noun + "s, " + std::to_string(m_bad) + " bad");
    }
    return m_count != 0 && m_bad == 0 && !m_hasInputErrors;
}

} // namespace msg
