// The summary of a run, as text for people and as JSON for programs.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <string>
#include <utility>
#include <vector>

namespace sim {

class Summary {
public:
    explicit Summary(std::string text) : m_text(std::move(text)) {}

    // Appends to the text, not to the JSON.
    void AppendText(const std::string& text) { m_text += text; }
    // Adds a number to the JSON.
    void Add(const std::string& key, uint64_t count) { m_numbers.emplace_back(key, count); }
    // Both functions add the number to the JSON and ", 3 text" to the text. AddIfAny does not add 0 to the text.
    void Add(const std::string& key, uint64_t count, const std::string& text);
    void AddIfAny(const std::string& key, uint64_t count, const std::string& text);

    const std::string& Text() const { return m_text; }
    // Returns {"summary":{...}} in one line. The numbers have the order in which they were added.
    std::string Json() const;

private:
    std::string m_text;
    std::vector<std::pair<std::string, uint64_t>> m_numbers;
};

// The names of a kind of message. Kinds are values of an enumeration from 0. In most enumerations 0 is the good kind.
struct KindName {
    const char* option; // the name on the command line; null if users cannot choose the kind
    const char* key;    // the name in the JSON summary
    const char* text;   // the name in the text summary
};

// Counts messages by kind. One thread at a time.
class KindCount {
public:
    // `names` must outlive the object.
    explicit KindCount(std::span<const KindName> names) : m_names(names), m_counts(names.size()) {}

    template <typename Kind>
    void Add(Kind kind) {
        ++m_counts[static_cast<size_t>(kind)];
    }
    uint64_t Total() const;
    // Returns the count of kind 0.
    uint64_t Good() const { return m_counts.front(); }
    // Returns the counts above 0: " (3 good, 1 wrong CRC)". Returns an empty string if all counts are 0.
    std::string Text() const;
    // Adds the count of each kind to the JSON of the summary.
    void AddNumbers(Summary& summary) const;

private:
    std::span<const KindName> m_names;
    std::vector<uint64_t> m_counts;
};

} // namespace sim
