#include "spat_conv_common.h"

#include <cstdio>
#include <cstring>

#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"SCOM"};

} // namespace

const cJSON* GetMemberFromJson(const cJSON* json, const char* item, int32_t level) {
    const cJSON* member = cJSON_GetObjectItemCaseSensitive(json, item);
    if (member == nullptr) {
        V2XLOG(g_log, level, "Get %s item failed!", item);
    }
    return member;
}

int32_t GetIntDataFromJson(const cJSON* json, const char* item, void* out_value) {
    if (json == nullptr || item == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return -2;
    }
    const cJSON* member = GetMemberFromJson(json, item);
    if (member == nullptr) {
        return -3;
    }
    if (out_value != nullptr) {
        const int64_t value = member->valueint;
        memcpy(out_value, &value, sizeof value);
    }
    return 0;
}

int32_t GetStringFromJson(const cJSON* json, const char* item, char* out_value, int32_t out_value_len) {
    if (json == nullptr || item == nullptr || out_value == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return -2;
    }
    const cJSON* member = GetMemberFromJson(json, item);
    if (member == nullptr) {
        return -3;
    }
    if (cJSON_IsString(member) == 0) {
        V2XLOG(g_log, V2XLOG_ERROR, "Get %s item failed!", item);
        return -3;
    }
    if (out_value_len > 0) {
        snprintf(out_value, static_cast<size_t>(out_value_len), "%s", member->valuestring);
    }
    return 0;
}

bool GetBoolFromJson(const cJSON* json, const char* item) {
    if (json == nullptr || item == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return false;
    }
    return cJSON_IsTrue(GetMemberFromJson(json, item)) != 0;
}
