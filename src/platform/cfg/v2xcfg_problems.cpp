// The problems of all configuration files of the process.
#include "v2x/v2xcfg.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

namespace {

// Bounds the memory, the time and the log lines of a file with many mistakes.
constexpr size_t MAX_PROBLEMS = 100;

struct Problem {
    e_v2xcfg_severity severity;
    std::string text;
};

struct Problems {
    std::mutex lock;
    std::vector<Problem> list;
};

// Never destroyed: threads may report problems while the process exits.
Problems& GetProblems() {
    static auto* const problems = new Problems;
    return *problems;
}

} // namespace

bool v2xcfg_Collect(e_v2xcfg_severity severity, const char* problem) {
    std::string text = problem;
    std::replace_if(
        text.begin(), text.end(), [](char c) { return static_cast<unsigned char>(c) < ' '; }, ' ');
    Problems& problems = GetProblems();
    const std::lock_guard guard(problems.lock);
    const auto isEqual = [&](const Problem& other) { return other.text == text; };
    if (problems.list.size() == MAX_PROBLEMS || std::any_of(problems.list.begin(), problems.list.end(), isEqual)) {
        return false;
    }
    problems.list.push_back({severity, std::move(text)});
    return true;
}

void v2xcfg_VisitProblems(v2xcfg_problemFun visit, void* arg) {
    Problems& problems = GetProblems();
    const std::lock_guard guard(problems.lock);
    for (const Problem& one : problems.list) {
        visit(arg, one.severity, one.text.c_str());
    }
}
