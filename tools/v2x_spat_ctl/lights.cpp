#include "lights.h"

#include <algorithm>
#include <cstdlib>

#include "common/text.h"
#include "format.h"

namespace ctl {
namespace {

using tools::FormatText;

constexpr LightLook UNKNOWN_LOOK = {"unknown", '?', Colour::none};
constexpr LightLook LOOKS[] = {
    {"unavailable", '-', Colour::none},       {"dark", '.', Colour::none},
    {"flashing red", 'R', Colour::red},       {"red", 'R', Colour::red},
    {"flashing green", 'G', Colour::green},   {"permissive green", 'G', Colour::green},
    {"protected green", 'G', Colour::green},  {"yellow", 'Y', Colour::yellow},
    {"flashing yellow", 'Y', Colour::yellow},
};

// Escape sequences of ECMA-48; index: Colour.
constexpr const char* SEQUENCES[] = {"", "\x1B[31m", "\x1B[33m", "\x1B[32m"};
constexpr const char* RESET_SEQUENCE = "\x1B[0m";

std::string FormatOptional(const cJSON* object, const char* name, const char* otherwise) {
    const std::string text = GetPlainText(object, name);
    return text.empty() ? otherwise : text;
}

std::vector<std::string> MakeCells(const cJSON* light) {
    const std::optional<double> left = CountDown(light, 0);
    return {std::to_string(GetInteger(light, "phase")),
            GetPlainText(light, "light"),
            left ? FormatText("%.1f s", *left) : "-",
            FormatAge(light, "age"),
            FormatOptional(light, "source", "daemon"),
            tools::IsNull(light, "device_phase") ? "-" : std::to_string(GetInteger(light, "device_phase"))};
}

// Returns the table with each light's name in its colour. A light's name follows the phase, which is a number.
std::string AddColours(const std::string& table, const Table& rows) {
    std::string text;
    size_t start = 0;
    for (const auto& row : rows) {
        const size_t end = table.find('\n', start) + 1;
        std::string line = table.substr(start, end - start);
        if (const Colour colour = FindLook(row[1]).colour; colour != Colour::none) {
            const std::string coloured = SEQUENCES[static_cast<int>(colour)] + row[1] + RESET_SEQUENCE;
            line.replace(line.find(row[1]), row[1].size(), coloured);
        }
        text += line;
        start = end;
    }
    return text;
}

} // namespace

const LightLook& FindLook(const std::string& name) {
    const auto* const look =
        std::find_if(std::begin(LOOKS), std::end(LOOKS), [&](const LightLook& row) { return name == row.name; });
    return look == std::end(LOOKS) ? UNKNOWN_LOOK : *look;
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

std::string FormatLights(const cJSON* reply, bool hasColours) {
    Table rows = {{"PHASE", "LIGHT", "LEFT", "AGE", "SOURCE", "DEVICE PHASE"}};
    const cJSON* light = nullptr;
    cJSON_ArrayForEach(light, tools::GetMember(reply, "lights")) {
        rows.push_back(MakeCells(light));
    }
    const std::string table = FormatTable(rows);
    return hasColours ? AddColours(table, rows) : table;
}

} // namespace ctl
