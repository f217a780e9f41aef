#include "status_text.h"

#include "common/text.h"
#include "format.h"

namespace ctl {
namespace {

using tools::FormatText;
using tools::GetFlag;
using tools::GetMember;
using tools::GetNumber;
using tools::GetText;

constexpr double DAY = 86400; // seconds

std::string Join(const std::vector<std::string>& parts, const char* separator) {
    std::string text;
    for (const std::string& part : parts) {
        text += (text.empty() ? "" : separator) + part;
    }
    return text;
}

std::string FormatPhases(const cJSON* check) {
    const cJSON* const phases = GetMember(check, "phases");
    const int count = cJSON_GetArraySize(phases);
    const std::string name = GetText(check, "check");
    const char* const kind = name == "duplicate" || name == "unmapped" ? "device phase" : "phase";
    return count == 0 ? "" : kind + std::string(count == 1 ? " " : "s ") + FormatNumbers(phases);
}

// Returns "learner fresh 0.3 s", or "learner waiting" for a source without a record.
std::string FormatFreshness(const cJSON* source) {
    const bool isUnknown = tools::IsNull(source, "age");
    return GetPlainText(source, "source") + " " + GetPlainText(source, "state") +
           (isUnknown ? "" : " " + FormatAge(source, "age"));
}

// Returns "no_yellow 3 (last 12:01:07, phase 5)".
std::string FormatCheck(const cJSON* check, bool hasSource) {
    const double age = GetNumber(check, "age");
    std::vector<std::string> details;
    if (GetFlag(check, "active")) {
        details.emplace_back("active");
    }
    if (hasSource) {
        details.push_back(GetPlainText(check, "source"));
    }
    details.push_back("last " +
                      (age < DAY ? FormatLocalTime(GetPlainText(check, "last"), false) : FormatDuration(age) + " ago"));
    if (const std::string phases = FormatPhases(check); !phases.empty()) {
        details.push_back(phases);
    }
    return FormatText("%s %.0f (%s)", GetPlainText(check, "check").c_str(), GetNumber(check, "count"),
                      Join(details, ", ").c_str());
}

// Returns the checks with a sight, or "none". Names the sources if there are several.
std::string FormatChecks(const cJSON* status) {
    const cJSON* const checks = GetMember(status, "checks");
    bool hasSeveral = false;
    const cJSON* check = nullptr;
    cJSON_ArrayForEach(check, checks) {
        hasSeveral = hasSeveral || GetText(check, "source") != GetText(checks->child, "source");
    }
    std::vector<std::string> texts;
    cJSON_ArrayForEach(check, checks) {
        texts.push_back(FormatCheck(check, hasSeveral));
    }
    return texts.empty() ? "none" : Join(texts, "; ");
}

} // namespace

std::vector<std::string> FindProblems(const cJSON* status) {
    std::vector<std::string> problems;
    const cJSON* item = nullptr;
    cJSON_ArrayForEach(item, GetMember(status, "sources")) {
        if (GetFlag(item, "required") && GetText(item, "state") != "fresh") {
            problems.push_back(FormatFreshness(item));
        }
    }
    if (const std::string stack = FormatStackState(status); stack != "answers") {
        problems.push_back("stack " + stack);
    }
    cJSON_ArrayForEach(item, GetMember(status, "checks")) {
        if (GetFlag(item, "active")) {
            const std::string phases = FormatPhases(item);
            problems.push_back(GetPlainText(item, "check") + " active" + (phases.empty() ? "" : " (" + phases + ")"));
        }
    }
    return problems;
}

std::string FormatBrief(const cJSON* status) {
    const std::vector<std::string> problems = FindProblems(status);
    if (!problems.empty()) {
        return "PROBLEM: " + Join(problems, ", ") + "\n";
    }
    std::string text = "OK: ";
    const cJSON* source = nullptr;
    cJSON_ArrayForEach(source, GetMember(status, "sources")) {
        text += GetFlag(source, "required") ? FormatFreshness(source) + ", " : "";
    }
    return text + "stack answers\n";
}

std::string FormatIdentity(const cJSON* status) {
    return FormatText("v2x_spat_convert %s (release %s), pid %.0f, up %s, intersection %.0f/%.0f",
                      GetPlainText(status, "version").c_str(), GetPlainText(status, "release").c_str(),
                      GetNumber(status, "pid"), FormatAge(status, "uptime").c_str(), GetNumber(status, "region"),
                      GetNumber(status, "node"));
}

std::vector<std::string> MakeSourceCells(const cJSON* source) {
    const std::string state = GetPlainText(source, "state");
    const std::string peer = GetPlainText(source, "peer");
    const bool hasStar = GetFlag(source, "forwarded") && !tools::IsNull(source, "age");
    std::vector<std::string> cells = {GetPlainText(source, "source") + (hasStar ? " *" : ""), peer.empty() ? "-" : peer,
                                      state};
    const double accepted = GetNumber(source, "accepted");
    const double refused = GetNumber(source, "refused");
    if (state != "off" && (state != "unwatched" || accepted + refused > 0)) {
        const bool hasRate = state != "stale" && !tools::IsNull(source, "rate");
        cells.insert(cells.end(),
                     {FormatAge(source, "age"), hasRate ? FormatText("%.1f/s", GetNumber(source, "rate")) : "-",
                      FormatText("%.0f", accepted), FormatText("%.0f", refused)});
    }
    return cells;
}

std::string FormatStackState(const cJSON* status) {
    const std::string state = GetPlainText(GetMember(status, "stack"), "state");
    return state == "unknown" ? "not asked yet" : state;
}

std::string FormatStack(const cJSON* status) {
    const cJSON* const stack = GetMember(status, "stack");
    const std::string text = GetPlainText(stack, "peer") + " " + FormatStackState(status);
    return tools::IsNull(stack, "age") ? text : text + ", " + FormatAge(stack, "age") + " ago";
}

std::string FormatCloud(const cJSON* status) {
    const cJSON* const cloud = GetMember(status, "cloud");
    const std::string topic = GetPlainText(cloud, "topic");
    const double readers = GetNumber(cloud, "readers");
    const std::string state = GetFlag(cloud, "available") ? "available" : "not available";
    return state + (tools::IsNull(cloud, "age") ? "" : ", " + FormatAge(cloud, "age") + " ago") + "; " +
           (topic.empty() ? std::string("no topic")
                          : FormatText("%.0f reader%s of %s", readers, readers == 1 ? "" : "s", topic.c_str()));
}

std::string FormatStatus(const cJSON* status, ClockState clock) {
    Table rows = {{"SOURCE", "PEER", "STATE", "AGE", "RATE", "ACCEPTED", "REFUSED"}};
    const cJSON* source = nullptr;
    cJSON_ArrayForEach(source, GetMember(status, "sources")) {
        rows.push_back(MakeSourceCells(source));
    }
    rows.push_back({"stack", FormatStack(status)});
    rows.push_back({"cloud", FormatCloud(status)});
    rows.push_back({"clock", FormatClockState(clock)});
    rows.push_back({"checks", FormatChecks(status)});
    return FormatIdentity(status) + "\n" + FormatTable(rows, {10, 16, 9, 8, 8, 10}, 1);
}

} // namespace ctl
