#include "common/json.h"

#include <stdexcept>

#include "common/text.h"

namespace tools {

Json ParseJsonObject(std::string_view text) {
    Json json(cJSON_ParseWithLength(text.data(), text.size()));
    if (json == nullptr || !cJSON_IsObject(json.get())) {
        throw std::runtime_error("expected a JSON object, found \"" + MakePlain(std::string(text.substr(0, 80))) +
                                 "\"");
    }
    return json;
}

std::string PrintJson(const cJSON* json) {
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(json), cJSON_free);
    return text != nullptr ? text.get() : "";
}

const cJSON* GetMember(const cJSON* object, const char* name) {
    return cJSON_GetObjectItemCaseSensitive(object, name);
}

double GetNumber(const cJSON* object, const char* name, double otherwise) {
    const cJSON* const member = GetMember(object, name);
    return cJSON_IsNumber(member) ? member->valuedouble : otherwise;
}

bool GetFlag(const cJSON* object, const char* name) {
    return cJSON_IsTrue(GetMember(object, name));
}

std::string GetText(const cJSON* object, const char* name) {
    const cJSON* const member = GetMember(object, name);
    return cJSON_IsString(member) ? member->valuestring : "";
}

int GetInteger(const cJSON* object, const char* name) {
    const cJSON* const member = GetMember(object, name);
    return cJSON_IsNumber(member) ? member->valueint : 0;
}

bool IsNull(const cJSON* object, const char* name) {
    const cJSON* const member = GetMember(object, name);
    return member == nullptr || cJSON_IsNull(member);
}

} // namespace tools
