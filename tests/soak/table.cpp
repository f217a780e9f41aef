#include "table.h"

#include <algorithm>
#include <utility>

namespace {

std::string with(int64_t number, const std::string& unit) {
    return std::to_string(number) + (unit.empty() ? "" : " " + unit);
}

} // namespace

bool Table::check(const std::string& what, bool passed, const std::string& seen, const std::string& asked) {
    (passed ? m_passed : m_failed)++;
    add({m_plan, what, seen, asked, passed ? "pass" : "FAIL"});
    return passed;
}

bool Table::atMost(const std::string& what, int64_t seen, int64_t limit, const std::string& unit) {
    return check(what, seen <= limit, with(seen, unit), "<= " + with(limit, unit));
}

bool Table::atLeast(const std::string& what, int64_t seen, int64_t limit, const std::string& unit) {
    return check(what, seen >= limit, with(seen, unit), ">= " + with(limit, unit));
}

bool Table::equal(const std::string& what, int64_t seen, int64_t asked, const std::string& unit) {
    return check(what, seen == asked, with(seen, unit), with(asked, unit));
}

void Table::notRun(const std::string& what, const std::string& why) {
    m_notRun++;
    add({m_plan, what, why, "", "not run"});
}

void Table::note(const std::string& what, const std::string& seen) {
    add({m_plan, what, seen, "", ""});
}

// Each line is shown as soon as it is known: a long run tells how it goes.
void Table::add(Line line) {
    fprintf(stderr, "%s: %s: %s%s%s\n", line.plan.c_str(), line.what.c_str(), line.seen.c_str(),
            line.verdict.empty() ? "" : ": ", line.verdict.c_str());
    m_lines.push_back(std::move(line));
}

void Table::print(FILE* file) const {
    constexpr std::string Line::*COLUMNS[] = {&Line::plan, &Line::what, &Line::seen, &Line::asked, &Line::verdict};
    std::vector<Line> lines = {{"plan", "what", "seen", "asked", ""}};
    lines.insert(lines.end(), m_lines.begin(), m_lines.end());
    for (const Line& line : lines) {
        std::string text;
        size_t end = 0;
        for (const auto column : COLUMNS) {
            size_t width = 0;
            for (const Line& other : lines) {
                width = std::max(width, (other.*column).size());
            }
            text += line.*column;
            end += width + 2;
            text.resize(std::max(end, text.size() + 1), ' ');
        }
        text.erase(text.find_last_not_of(' ') + 1);
        fprintf(file, "%s\n", text.c_str());
    }
    fprintf(file, "%d passed, %d failed, %d not run\n", m_passed, m_failed, m_notRun);
}
