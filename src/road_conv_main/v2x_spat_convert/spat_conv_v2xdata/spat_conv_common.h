// Functions that read one member of a JSON object of the cloud's documents.
//
// `item` is the key of a direct member of `json`, case-sensitive. A missing member is logged as "Get %s item failed!"
// at V2XLOG_ERROR under the tag "SCOM". Any thread; do not use the same document on two threads at once.
#pragma once

#include <cjson/cJSON.h>
#include <cstdint>

#include "v2x/v2xlog.h"

// Returns the member; null if the member is missing or `json` is not an object. The document owns the member. `level`
// is the level of the line about a missing member.
const cJSON* GetMemberFromJson(const cJSON* json, const char* item, int32_t level = V2XLOG_ERROR);

// Stores the member's number as an int64_t at out_value: truncated toward zero and clamped to 32 bits. A member of
// another type gives 0. If out_value is null, the function only checks that the member exists. Returns 0; -2 for a null
// json or item; -3 if the member is missing (*out_value stays unchanged).
int32_t GetIntDataFromJson(const cJSON* json, const char* item, void* out_value);

// Copies the member's text to out_value, truncated to out_value_len - 1 bytes and NUL-terminated. If out_value_len is 0
// or less, copies nothing. Returns 0; -2 for a null argument; -3 if the member is missing or not a string.
int32_t GetStringFromJson(const cJSON* json, const char* item, char* out_value, int32_t out_value_len);

// Returns true if the member is JSON true.
bool GetBoolFromJson(const cJSON* json, const char* item);
