#include "reply_text.h"

#include <algorithm>

#include "common/text.h"
#include "format.h"
#include "log_request.h"

namespace ctl {
namespace {

using tools::FormatText;
using tools::GetFlag;
using tools::GetInteger;
using tools::GetMember;
using tools::GetNumber;

// Returns "learner 1 red 12.3, 2 dark -", for the lights of one record.
std::string FormatRecord(const cJSON* event) {
    std::string text = FormatSource(event) + (GetFlag(event, "replaced") ? " replaced" : "");
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
    return member->string != nullptr ? tools::MakePlain(member->string) : "";
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
    const char* start; // empty if the text says what happened
    std::string (*format)(const cJSON* event);
} EVENTS[] = {
    {"record", "record ", FormatRecord}, {"source", "source ", CopyText},
    {"forwarded", "", CopyText},         {"check", "", CopyText},
    {"stack", "stack ", FormatState},    {"cloud", "cloud ", FormatAvailability},
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
        text += GetPlainText(setting, "key") + " = " + tools::MakePlain(tools::PrintJson(GetMember(setting, "value"))) +
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
    if (!tools::IsNull(event, "lost")) {
        return FormatText("lost %.0f events\n", GetNumber(event, "lost"));
    }
    const std::string name = GetPlainText(event, "event");
    const auto* const row = std::ranges::find(EVENTS, name, [](const auto& each) { return each.event; });
    return FormatLocalTime(GetPlainText(event, "time"), true) + " " +
           (row != std::end(EVENTS) ? row->start + row->format(event) : name) + "\n";
}

} // namespace ctl
