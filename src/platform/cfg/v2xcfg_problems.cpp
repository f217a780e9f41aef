// The problems of all configuration files of the process.
#include "v2x/v2xcfg.h"

#include <algorithm>
#include <mutex>
#include <string>
#include <utility>
#include <vector>

#include "v2xcfg_context.h"

namespace {

// Bounds the memory, the time and the log lines of a file with many mistakes. An error is never omitted: the size of a
// file bounds the number of its errors.
constexpr size_t MAX_PROBLEMS = 100;
constexpr char CUT_TEXT[] = "more than 100 problems, further warnings are omitted";

struct Problem {
    e_v2xcfg_severity severity;
    std::string text;
};

struct Problems {
    std::mutex lock;
    std::vector<Problem> list;
    bool isCut = false; // true: a warning or a note is omitted
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
    if (std::any_of(problems.list.begin(), problems.list.end(), isEqual)) {
        return false;
    }
    if (severity != V2XCFG_ERROR && problems.list.size() >= MAX_PROBLEMS) {
        if (!problems.isCut) {
            V2XLOG(g_vcfgLog, V2XLOG_WARN, "%s", CUT_TEXT);
        }
        problems.isCut = true;
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
    if (problems.isCut) {
        visit(arg, V2XCFG_WARNING, CUT_TEXT);
    }
}
