#include "lights.h"

#include <algorithm>
#include <cstdlib>

#include "common/text.h"
#include "format.h"
#include "light_look.h"

namespace ctl {
namespace {

using tools::FormatText;

// Escape sequences of ECMA-48; index: Colour.
constexpr const char* SEQUENCES[] = {"", "\x1B[31m", "\x1B[33m", "\x1B[32m"};
constexpr const char* RESET_SEQUENCE = "\x1B[0m";

constexpr const char* STALE = "STALE";

const cJSON* FindSource(const cJSON* status, const std::string& name) {
    const cJSON* source = nullptr;
    cJSON_ArrayForEach(source, tools::GetMember(status, "sources")) {
        if (tools::GetText(source, "source") == name) {
            return source;
        }
    }
    return nullptr;
}

std::vector<std::string> MakeCells(const cJSON* status, const cJSON* light) {
    const std::optional<double> left = CountDown(light, 0);
    return {std::to_string(tools::GetInteger(light, "phase")),
            GetPlainText(light, "light"),
            IsOld(status, light, 0) ? STALE
            : left                  ? FormatText("%.1f s", *left)
                                    : "-",
            FormatAge(light, "age"),
            FormatSource(light),
            FormatDevicePhase(light)};
}

// Returns the table with the name of each present light in its colour. The name follows the phase, which is a number.
std::string AddColours(const std::string& table, const Table& rows) {
    std::string text;
    size_t start = 0;
    for (const auto& row : rows) {
        const size_t end = table.find('\n', start) + 1;
        std::string line = table.substr(start, end - start);
        if (const Colour colour = LookOf(FindLight(row[1])).colour; colour != Colour::none && row[2] != STALE) {
            const std::string coloured = SEQUENCES[static_cast<int>(colour)] + row[1] + RESET_SEQUENCE;
            line.replace(line.find(row[1]), row[1].size(), coloured);
        }
        text += line;
        start = end;
    }
    return text;
}

} // namespace

double OldAfter(const cJSON* status, const std::string& source) {
    constexpr double OWN_RECORD = 3; // the daemon repeats its record each second
    constexpr double UNWATCHED = 10;
    const double staleAfter = tools::GetNumber(FindSource(status, source), "stale_after");
    return source.empty() ? OWN_RECORD : staleAfter > 0 ? staleAfter : UNWATCHED;
}

bool IsOld(const cJSON* status, const cJSON* light, double sinceReply) {
    const std::string source = tools::GetText(light, "source");
    return tools::GetText(FindSource(status, source), "state") == "stale" ||
           tools::GetNumber(light, "age") + sinceReply > OldAfter(status, source);
}

bool AllowsColours() {
    const char* const noColour = getenv("NO_COLOR");
    return noColour == nullptr || *noColour == '\0';
}

std::optional<double> CountDown(const cJSON* light, double sinceReply) {
    if (tools::IsNull(light, "time_left")) {
        return std::nullopt;
    }
    // With 0 first, the result is 0 if the difference is not a number.
    return std::max(0.0, tools::GetNumber(light, "time_left") - tools::GetNumber(light, "age") - sinceReply);
}

std::string FormatLights(const cJSON* status, const cJSON* reply, bool hasColours) {
    Table rows = {{"PHASE", "LIGHT", "LEFT", "AGE", "SOURCE", "DEVICE PHASE"}};
    const cJSON* light = nullptr;
    cJSON_ArrayForEach(light, tools::GetMember(reply, "lights")) {
        rows.push_back(MakeCells(status, light));
    }
    const std::string table = FormatTable(rows);
    return hasColours ? AddColours(table, rows) : table;
}

} // namespace ctl
