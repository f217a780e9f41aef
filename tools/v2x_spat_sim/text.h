// Functions for text lines and JSON lines.
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

// Calls `visit` with each line of `text`, without the comment, which begins with '#'. Skips empty lines. If `visit`
// throws std::invalid_argument, throws std::runtime_error "name:line: reason".
void ForEachLine(const std::string& text, const std::string& name,
                 const std::function<void(std::string_view line)>& visit);

struct JsonDeleter {
    void operator()(cJSON* item) const { cJSON_Delete(item); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDeleter>;

// Adds an integer with all digits. cJSON's own numbers are floating-point and lose digits beyond 2^53.
void AddNumber(cJSON* object, const char* key, std::integral auto value) {
    cJSON_AddRawToObject(object, key, std::to_string(value).c_str());
}

// Appends an empty object to an array and returns the object. The array owns the object.
cJSON* AddObject(cJSON* array);

// Returns the object as one line without a line end.
std::string JsonLine(const JsonPtr& object);

} // namespace sim
