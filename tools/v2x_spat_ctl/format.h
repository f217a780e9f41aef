// Formats the values of the daemon's lines for people.
#pragma once

#include <cstddef>
#include <string>
#include <vector>

#include "common/json.h"

namespace ctl {

// The cells of each row; the first row may be the heads of the columns.
using Table = std::vector<std::vector<std::string>>;

// Pads the cells of each column to the same width: the longest cell plus `gap` blanks, at least the one in `widths`.
// The last filled cell of a row is not padded, and it does not widen its column.
std::string FormatTable(const Table& rows, std::vector<size_t> widths = {}, size_t gap = 2);

// Returns "0.3 s" up to 100 s, then "12 min 05 s", "3 h 05 min" or "3 d 04 h".
std::string FormatDuration(double seconds);

// Returns the member `name` in seconds as FormatDuration does, or "-" if the daemon does not know it.
std::string FormatAge(const cJSON* object, const char* name);

// Turns "2026-11-22T20:04:41.123Z" into the local time of the log, "20:04:41" or with milliseconds "20:04:41.123".
// Returns any other text unchanged.
std::string FormatLocalTime(const std::string& time, bool hasMilliseconds);

// Returns the numbers of an array as "5" or "1, 4".
std::string FormatNumbers(const cJSON* array);

// Returns a text member through tools::MakePlain.
std::string GetPlainText(const cJSON* object, const char* name);

// Returns the source of a light or a record, "daemon" for the daemon's own record.
std::string FormatSource(const cJSON* object);

// Returns the device phase of a light, or "-".
std::string FormatDevicePhase(const cJSON* light);

} // namespace ctl
