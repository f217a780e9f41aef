#include "report.h"

#include <cstdio>

namespace {

std::string with(int64_t number, const std::string& unit) {
    return std::to_string(number) + (unit.empty() ? "" : " " + unit);
}

} // namespace

bool Report::check(const std::string& what, bool passed, const std::string& seen, const std::string& asked) {
    (passed ? m_passed : m_failed)++;
    print(what, seen, asked, passed ? "pass" : "FAIL");
    return passed;
}

bool Report::atMost(const std::string& what, int64_t seen, int64_t limit, const std::string& unit) {
    return check(what, seen <= limit, with(seen, unit), "<= " + with(limit, unit));
}

bool Report::atLeast(const std::string& what, int64_t seen, int64_t limit, const std::string& unit) {
    return check(what, seen >= limit, with(seen, unit), ">= " + with(limit, unit));
}

bool Report::equal(const std::string& what, int64_t seen, int64_t asked, const std::string& unit) {
    return check(what, seen == asked, with(seen, unit), with(asked, unit));
}

bool Report::printCounts() const {
    printf("%d passed, %d failed\n", m_passed, m_failed);
    return m_failed == 0;
}

void Report::print(const std::string& what, const std::string& seen, const std::string& asked,
                   const char* result) const {
    printf("%-7s %-58s %-28s %-24s %s\n", m_plan.c_str(), what.c_str(), seen.c_str(), asked.c_str(), result);
    fflush(stdout);
}
