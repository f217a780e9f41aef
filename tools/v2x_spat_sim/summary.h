// What a simulator has to say at its end, for people and for scripts.
#pragma once

#include <cstdint>
#include <string>
#include <utility>
#include <vector>

#include "output.h"

namespace sim {

struct Summary {
    std::string text;                                      // for people
    std::vector<std::pair<std::string, uint64_t>> numbers; // for scripts, in this order
};

// {"summary":{...}} in one line.
std::string SummaryJson(const Summary& summary);

// Prints the summary, as JSON or for people, and writes it as JSON to `file` too unless that is empty. Throws
// std::runtime_error when the file cannot be written.
void ReportSummary(const Summary& summary, bool json, const std::string& file, Output& output);

} // namespace sim
