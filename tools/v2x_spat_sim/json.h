// JSON output: one text line per object.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <memory>
#include <string>

namespace sim {

struct JsonDelete {
    void operator()(cJSON* item) const { cJSON_Delete(item); }
};
using JsonPtr = std::unique_ptr<cJSON, JsonDelete>;

// Adds whole numbers digit by digit: the library's own numbers are floating-point and lose digits beyond 2^53.
void AddUnsigned(cJSON* object, const char* key, uint64_t value);
void AddSigned(cJSON* object, const char* key, int64_t value);

// Adds an empty object at the end of an array; the array owns it. Null without memory, which cJSON's calls take.
cJSON* AddObject(cJSON* array);

// The object as one line without end of line. Throws std::bad_alloc.
std::string JsonLine(const JsonPtr& object);

} // namespace sim
