// Text for people, text lines from files, and JSON lines for programs.
#pragma once

#include <cjson/cJSON.h>

#include <concepts>
#include <functional>
#include <memory>
#include <string>
#include <string_view>

#include "common/text.h"

namespace sim {

using tools::FormatText;

// Calls `take` with each line of `text`. What follows a '#' is a comment and is cut off; empty lines are skipped. A
// std::invalid_argument of `take` becomes std::runtime_error "name:line: reason".
void EachLine(const std::string& text, const std::string& name, const std::function<void(std::string_view line)>& take);

struct JsonDelete {
    void operator()(cJSON* item) const { cJSON_Delete(item); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDelete>;

// Writes all digits: cJSON's own numbers are floating-point and lose digits beyond 2^53.
void AddNumber(cJSON* object, const char* key, std::integral auto value) {
    cJSON_AddRawToObject(object, key, std::to_string(value).c_str());
}

// Adds an empty object at the end of an array, which owns it.
cJSON* AddObject(cJSON* array);

// The object in one line without a line end.
std::string JsonLine(const JsonPtr& object);

} // namespace sim
