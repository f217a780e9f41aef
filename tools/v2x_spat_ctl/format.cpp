#include "format.h"

#include <algorithm>
#include <ctime>

#include "common/text.h"

namespace ctl {
namespace {

using tools::FormatText;

// Returns the index of the last filled cell, or 0.
size_t FindLast(const std::vector<std::string>& row) {
    size_t last = 0;
    for (size_t i = 0; i < row.size(); i++) {
        last = row[i].empty() ? last : i;
    }
    return last;
}

} // namespace

std::string FormatTable(const Table& rows, std::vector<size_t> widths, size_t gap) {
    for (const auto& row : rows) {
        widths.resize(std::max(widths.size(), row.size()));
        for (size_t i = 0; i < FindLast(row); i++) {
            widths[i] = std::max(widths[i], row[i].size() + gap);
        }
    }
    std::string text;
    for (const auto& row : rows) {
        const size_t last = FindLast(row);
        for (size_t i = 0; i <= last && i < row.size(); i++) {
            text += row[i];
            text.append(i < last ? widths[i] - row[i].size() : 0, ' ');
        }
        text += '\n';
    }
    return text;
}

std::string FormatDuration(double seconds) {
    constexpr int MINUTE = 60;
    constexpr int HOUR = 60 * MINUTE;
    constexpr int DAY = 24 * HOUR;
    if (seconds < 99.95) {
        return FormatText("%.1f s", std::max(seconds, 0.0));
    }
    const int whole = static_cast<int>(std::min(seconds, 1e9));
    if (whole < HOUR) {
        return FormatText("%d min %02d s", whole / MINUTE, whole % MINUTE);
    }
    return whole < DAY ? FormatText("%d h %02d min", whole / HOUR, whole % HOUR / MINUTE)
                       : FormatText("%d d %02d h", whole / DAY, whole % DAY / HOUR);
}

std::string FormatAge(const cJSON* object, const char* name) {
    return tools::IsNull(object, name) ? "-" : FormatDuration(tools::GetNumber(object, name));
}

std::string FormatLocalTime(const std::string& time, bool hasMilliseconds) {
    tm parts{};
    const char* const fraction = strptime(time.c_str(), "%Y-%m-%dT%H:%M:%S", &parts);
    if (fraction == nullptr) {
        return time;
    }
    const time_t seconds = timegm(&parts);
    char text[16] = "";
    localtime_r(&seconds, &parts);
    strftime(text, sizeof text, "%H:%M:%S", &parts);
    return hasMilliseconds ? text + std::string(fraction).substr(0, 4) : text;
}

std::string FormatNumbers(const cJSON* array) {
    std::string text;
    const cJSON* number = nullptr;
    cJSON_ArrayForEach(number, array) {
        text += FormatText("%s%d", text.empty() ? "" : ", ", number->valueint);
    }
    return text;
}

std::string GetPlainText(const cJSON* object, const char* name) {
    return tools::MakePlain(tools::GetText(object, name));
}

std::string FormatSource(const cJSON* object) {
    const std::string source = GetPlainText(object, "source");
    return source.empty() ? "daemon" : source;
}

std::string FormatDevicePhase(const cJSON* light) {
    return tools::IsNull(light, "device_phase") ? "-" : std::to_string(tools::GetInteger(light, "device_phase"));
}

} // namespace ctl
