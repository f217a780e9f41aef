#include "summary.h"

#include <cerrno>
#include <cstring>
#include <fstream>
#include <stdexcept>

#include "json.h"

namespace sim {

std::string SummaryJson(const Summary& summary) {
    const JsonPtr object(cJSON_CreateObject());
    cJSON* const numbers = cJSON_AddObjectToObject(object.get(), "summary");
    for (const auto& [key, value] : summary.numbers) {
        AddUnsigned(numbers, key.c_str(), value);
    }
    return JsonLine(object);
}

void ReportSummary(const Summary& summary, bool json, const std::string& file, Output& output) {
    const std::string line = SummaryJson(summary);
    output.Line(json ? line : summary.text);
    if (file.empty()) {
        return;
    }
    std::ofstream out(file);
    out << line << '\n';
    out.close();
    if (!out) {
        throw std::runtime_error(file + ": the summary cannot be written: " + std::strerror(errno));
    }
}

} // namespace sim
