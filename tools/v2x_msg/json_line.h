// Parses lines of JSON.
#pragma once

#include <exception>
#include <string>
#include <string_view>
#include <utility>

#include "codec.h"
#include "common/json.h"

namespace msg {

class InvalidJson : public std::exception {
public:
    explicit InvalidJson(Problem problem) : m_problem(std::move(problem)) {}
    const Problem& Reason() const { return m_problem; }

private:
    Problem m_problem;
};

// Replaces NUL in the texts of a parsed line, because a text of cJSON ends at NUL. No UTF-8 text contains these bytes.
inline constexpr std::string_view NUL_MARK = "\xFF\xFF\xFF\xFF\xFF\xFF";

// Returns the text with `nul` instead of each NUL_MARK.
std::string RestoreNul(std::string_view text, std::string_view nul);

// Parses one JSON value. Only white space may precede or follow it. Throws InvalidJson with the offset in the line.
// Also rejects a value that is nested more than 32 levels deep. No message needs more than 20 levels.
tools::Json ParseJsonLine(std::string_view line);

} // namespace msg
