// The checks of a run. Each prints its line at once: plan, check, value, limit, result.
#pragma once

#include <cstdint>
#include <string>

class Report {
public:
    void startPlan(const std::string& plan) { m_plan = plan; }
    bool check(const std::string& what, bool passed, const std::string& seen, const std::string& asked);
    bool atMost(const std::string& what, int64_t seen, int64_t limit, const std::string& unit = "");
    bool atLeast(const std::string& what, int64_t seen, int64_t limit, const std::string& unit = "");
    bool equal(const std::string& what, int64_t seen, int64_t asked, const std::string& unit = "");
    void note(const std::string& what, const std::string& seen) { print(what, seen, "", ""); } // no result

    bool printCounts() const; // false when a check failed

private:
    void print(const std::string& what, const std::string& seen, const std::string& asked, const char* result) const;

    std::string m_plan;
    int m_passed = 0;
    int m_failed = 0;
};
