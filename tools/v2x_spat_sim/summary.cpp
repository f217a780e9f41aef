#include "summary.h"

#include <cinttypes>
#include <numeric>

#include "text.h"

namespace sim {

void Summary::Add(const std::string& key, uint64_t count, const std::string& text) {
    Add(key, count);
    AppendText(FormatText(", %" PRIu64 " %s", count, text.c_str()));
}

void Summary::AddIfAny(const std::string& key, uint64_t count, const std::string& text) {
    if (count != 0) {
        Add(key, count, text);
    } else {
        Add(key, count);
    }
}

std::string Summary::Json() const {
    const JsonPtr object(cJSON_CreateObject());
    cJSON* const numbers = cJSON_AddObjectToObject(object.get(), "summary");
    for (const auto& [key, count] : m_numbers) {
        AddNumber(numbers, key.c_str(), count);
    }
    return JsonLine(object);
}

uint64_t KindCount::Total() const {
    return std::accumulate(m_counts.begin(), m_counts.end(), uint64_t{0});
}

std::string KindCount::Text() const {
    std::string text;
    for (size_t kind = 0; kind < m_counts.size(); ++kind) {
        if (m_counts[kind] != 0) {
            text += FormatText("%s%" PRIu64 " %s", text.empty() ? " (" : ", ", m_counts[kind], m_names[kind].text);
        }
    }
    return text.empty() ? "" : text + ")";
}

void KindCount::AddNumbers(Summary& summary) const {
    for (size_t kind = 0; kind < m_counts.size(); ++kind) {
        summary.Add(m_names[kind].key, m_counts[kind]);
    }
}

} // namespace sim
