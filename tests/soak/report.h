// The checks of a run. Each prints its line at once: plan, check, value, limit, result.
#pragma once

#include <cstdint>
#include <cstdio>
#include <string>

class Report {
public:
    void startPlan(const std::string& plan) { m_plan = plan; }
    bool check(const std::string& what, bool passed, const std::string& seen, const std::string& asked) {
        (passed ? m_passed : m_failed)++;
        print(what, seen, asked, passed ? "pass" : "FAIL");
        return passed;
    }
    bool atMost(const std::string& what, int64_t seen, int64_t limit) {
        return check(what, seen <= limit, std::to_string(seen), "<= " + std::to_string(limit));
    }
    bool atLeast(const std::string& what, int64_t seen, int64_t limit) {
        return check(what, seen >= limit, std::to_string(seen), ">= " + std::to_string(limit));
    }
    bool equal(const std::string& what, int64_t seen, int64_t asked) {
        return check(what, seen == asked, std::to_string(seen), std::to_string(asked));
    }
    void note(const std::string& what, const std::string& seen) { print(what, seen, "", ""); } // no result

    // False when a check failed.
    bool printCounts() const {
        printf("%d passed, %d failed\n", m_passed, m_failed);
        return m_failed == 0;
    }

private:
    void print(const std::string& what, const std::string& seen, const std::string& asked, const char* result) const {
        printf("%-7s %-58s %-28s %-24s %s\n", m_plan.c_str(), what.c_str(), seen.c_str(), asked.c_str(), result);
        fflush(stdout);
    }

    std::string m_plan;
    int m_passed = 0;
    int m_failed = 0;
};
