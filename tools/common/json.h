// Reads JSON objects with cJSON.
#pragma once

#include <cjson/cJSON.h>

#include <memory>
#include <string>
#include <string_view>

namespace tools {

struct JsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using Json = std::unique_ptr<cJSON, JsonDeleter>;

// Parses one JSON object. Throws std::runtime_error for any other text.
Json ParseJsonObject(std::string_view text);

// Formats a value on one line.
std::string PrintJson(const cJSON* json);

// Return the member `name` of `object`. If `object` is null, or the member is missing or has another type, they return
// null, the default or an empty text.
const cJSON* GetMember(const cJSON* object, const char* name);
double GetNumber(const cJSON* object, const char* name, double otherwise = 0);
bool GetFlag(const cJSON* object, const char* name);
std::string GetText(const cJSON* object, const char* name);
int GetInteger(const cJSON* object, const char* name); // without the fraction, limited to the values of an int

// Returns true if the member is missing or null.
bool IsNull(const cJSON* object, const char* name);

} // namespace tools
