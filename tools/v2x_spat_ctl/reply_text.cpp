#include "reply_text.h"

#include <stdexcept>

#include "common/text.h"
#include "format.h"
#include "log_request.h"

namespace ctl {
namespace {

using tools::FormatText;
using tools::GetFlag;
using tools::GetMember;
using tools::GetNumber;

// Returns "learner 1 red 12.3, 2 dark -", for the lights of one record.
std::string FormatRecord(const cJSON* event) {
    const std::string source = GetPlainText(event, "source");
    std::string text = (source.empty() ? "daemon" : source) + (GetFlag(event, "replaced") ? " replaced" : "");
    const char* separator = " ";
    const cJSON* light = nullptr;
    cJSON_ArrayForEach(light, GetMember(event, "lights")) {
        const bool isUnknown = tools::IsNull(light, "time_left");
        text += FormatText("%s%d %s ", separator, GetInteger(light, "phase"), GetPlainText(light, "light").c_str());
        text += isUnknown ? "-" : FormatText("%.1f", GetNumber(light, "time_left"));
        separator = ", ";
    }
    return text;
}

// Returns the name of a member; an element of an array has none.
std::string NameOf(const cJSON* member) {
    return member->string != nullptr ? member->string : "";
}

std::string CopyText(const cJSON* event) {
    return GetPlainText(event, "text");
}

std::string FormatState(const cJSON* event) {
    return GetPlainText(event, "state");
}

std::string FormatAvailability(const cJSON* event) {
    return GetFlag(event, "available") ? "available" : "not available";
}

constexpr struct {
    const char* event;
    std::string (*format)(const cJSON* event);
} EVENTS[] = {
    {"record", FormatRecord}, {"source", CopyText},   {"forwarded", CopyText},
    {"check", CopyText},      {"stack", FormatState}, {"cloud", FormatAvailability},
};

} // namespace

std::string FormatCounters(const cJSON* reply) {
    Table rows = {{"PATH", "COUNTER", "COUNT"}};
    const cJSON* path = nullptr;
    cJSON_ArrayForEach(path, GetMember(reply, "counters")) {
        const cJSON* counter = nullptr;
        cJSON_ArrayForEach(counter, path) {
            rows.push_back({NameOf(path), NameOf(counter), FormatText("%.0f", counter->valuedouble)});
        }
    }
    return FormatTable(rows);
}

std::string FormatConfig(const cJSON* reply) {
    std::string text;
    std::string file;
    const cJSON* setting = nullptr;
    cJSON_ArrayForEach(setting, GetMember(reply, "settings")) {
        if (const std::string next = GetPlainText(setting, "file"); next != file) {
            text += "# " + next + "\n";
            file = next;
        }
        text += GetPlainText(setting, "key") + " = " + tools::PrintJson(GetMember(setting, "value")) +
                (GetFlag(setting, "default") ? "  # default\n" : "\n");
    }
    return text;
}

std::string FormatLevels(const cJSON* reply) {
    Table rows = {{"TAG", "LEVEL"}};
    const cJSON* row = nullptr;
    cJSON_ArrayForEach(row, GetMember(reply, "levels")) {
        rows.push_back(
            {GetPlainText(row, "tag"), logtool::FormatLevel(static_cast<int16_t>(GetInteger(row, "level")))});
    }
    return FormatTable(rows);
}

std::string FormatEvent(const cJSON* event) {
    if (const std::string error = GetPlainText(event, "error"); !error.empty()) {
        throw std::runtime_error(error);
    }
    if (!tools::IsNull(event, "lost")) {
        return FormatText("lost %.0f events\n", GetNumber(event, "lost"));
    }
    const std::string name = GetPlainText(event, "event");
    std::string text = FormatLocalTime(GetPlainText(event, "time"), true) + " " + name;
    for (const auto& row : EVENTS) {
        text += name == row.event ? " " + row.format(event) : "";
    }
    return text + "\n";
}

} // namespace ctl
