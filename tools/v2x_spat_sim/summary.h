// The summary of a run, for people and for programs, and the counts in it.
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

    // Appends to the text for people.
    void Say(const std::string& text) { m_text += text; }
    // Adds a number for programs.
    void Add(const std::string& key, uint64_t count) { m_numbers.emplace_back(key, count); }
    // Adds the number for programs and ", 3 text" for people; AddIfAny leaves a zero out of the text.
    void Add(const std::string& key, uint64_t count, const std::string& text);
    void AddIfAny(const std::string& key, uint64_t count, const std::string& text);

    const std::string& Text() const { return m_text; }
    // {"summary":{...}} in one line, the numbers in the order in which they were added.
    std::string Json() const;

private:
    std::string m_text;
    std::vector<std::pair<std::string, uint64_t>> m_numbers;
};

// What a kind of message is called. A role's kinds are numbered from 0; most roles have the good ones first.
struct KindName {
    const char* option; // on the command line; null when it cannot be chosen there
    const char* key;    // in the summary for programs
    const char* text;   // in the summary for people
};

// Counts messages by kind. One thread at a time.
class KindCount {
public:
    // The names must outlive the count.
    explicit KindCount(std::span<const KindName> names) : m_names(names), m_counts(names.size()) {}

    template <typename Kind>
    void Add(Kind kind) {
        ++m_counts[static_cast<size_t>(kind)];
    }
    uint64_t All() const;
    // Those of kind 0.
    uint64_t Good() const { return m_counts.front(); }
    // " (3 good, 1 wrong CRC)": the kinds that were counted; empty without any.
    std::string Text() const;
    // Adds the number of each kind.
    void AddNumbers(Summary& summary) const;

private:
    std::span<const KindName> m_names;
    std::vector<uint64_t> m_counts;
};

} // namespace sim
