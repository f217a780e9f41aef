// What a run has shown: lines of what was looked at, what was seen and what was asked, each with its verdict.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

class Table {
public:
    // Lines from here on belong to `plan`.
    void plan(const std::string& plan) { m_plan = plan; }
    // A line with a verdict; returns it.
    bool check(const std::string& what, bool passed, const std::string& seen, const std::string& asked);
    // check() with a number that is to be at most, at least or exactly so much.
    bool atMost(const std::string& what, int64_t seen, int64_t limit, const std::string& unit = "");
    bool atLeast(const std::string& what, int64_t seen, int64_t limit, const std::string& unit = "");
    bool equal(const std::string& what, int64_t seen, int64_t asked, const std::string& unit = "");
    // What could not be looked at, and why.
    void notRun(const std::string& what, const std::string& why);
    // A line without a verdict.
    void note(const std::string& what, const std::string& seen);

    void print(FILE* file) const;
    int passed() const { return m_passed; }
    int failed() const { return m_failed; }
    int notRun() const { return m_notRun; }

private:
    struct Line {
        std::string plan, what, seen, asked, verdict;
    };
    void add(Line line);

    std::string m_plan;
    std::vector<Line> m_lines;
    int m_passed = 0;
    int m_failed = 0;
    int m_notRun = 0;
};
