#include "json.h"

#include <new>

namespace sim {

void AddUnsigned(cJSON* object, const char* key, uint64_t value) {
    cJSON_AddRawToObject(object, key, std::to_string(value).c_str());
}

void AddSigned(cJSON* object, const char* key, int64_t value) {
    cJSON_AddRawToObject(object, key, std::to_string(value).c_str());
}

cJSON* AddObject(cJSON* array) {
    JsonPtr object(cJSON_CreateObject());
    return cJSON_AddItemToArray(array, object.get()) != 0 ? object.release() : nullptr;
}

std::string JsonLine(const JsonPtr& object) {
    struct Free {
        void operator()(char* line) const { cJSON_free(line); }
    };
    const std::unique_ptr<char, Free> line(cJSON_PrintUnformatted(object.get()));
    if (line == nullptr) {
        throw std::bad_alloc();
    }
    return line.get();
}

} // namespace sim
