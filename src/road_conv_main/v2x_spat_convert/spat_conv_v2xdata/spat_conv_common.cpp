#include "spat_conv_common.h"

#include <cstdio>
#include <cstring>

#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"SCOM"};

// Looks the member up. Returns what the readers return.
int32_t Find(const cJSON* json, const char* item, const cJSON** member) {
    if (json == nullptr || item == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return -2;
    }
    *member = cJSON_GetObjectItemCaseSensitive(json, item);
    if (*member == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "Get %s item failed!", item);
        return -3;
    }
    return 0;
}

} // namespace

int32_t GetIntDataFromJson(const cJSON* json, const char* item, void* out_value) {
    const cJSON* member = nullptr;
    const int32_t ret = Find(json, item, &member);
    if (ret == 0 && out_value != nullptr) {
        const int64_t value = member->valueint;
        memcpy(out_value, &value, sizeof value);
    }
    return ret;
}

int32_t GetStringFromJson(const cJSON* json, const char* item, char* out_value, int32_t out_value_len) {
    const cJSON* member = nullptr;
    const int32_t ret = Find(out_value != nullptr ? json : nullptr, item, &member);
    if (ret != 0) {
        return ret;
    }
    if (!cJSON_IsString(member) || member->valuestring == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "Get %s item failed!", item);
        return -3;
    }
    if (out_value_len > 0) {
        snprintf(out_value, static_cast<size_t>(out_value_len), "%s", member->valuestring);
    }
    return 0;
}

bool GetBoolFromJson(const cJSON* json, const char* item) {
    const cJSON* member = nullptr;
    return Find(json, item, &member) == 0 && cJSON_IsTrue(member) != 0;
}
