// Readers of one member of a JSON object, for the cloud's documents.
//
// `item` is the key of a direct member of `json`, case-sensitive. A missing member is logged as "Get %s item failed!"
// at level 2 under the tag "SCOM". Any thread; one document on one thread at a time.
#pragma once

#include <cjson/cJSON.h>
#include <cstdint>

// The member; null when it is missing or `json` is not an object. The tree keeps ownership.
const cJSON* GetMemberFromJson(const cJSON* json, const char* item);

// Stores the member's value as an int64_t at out_value: cJSON's 32-bit integer view, widened with its sign (fractions
// truncated toward zero, larger numbers saturated, 0 for a member of another type). A null out_value drops the value.
// Returns 0; -2 for a null json or item; -3 when the member is missing (nothing is stored).
int32_t GetIntDataFromJson(const cJSON* json, const char* item, void* out_value);

// Copies the member's text into out_value, truncated to out_value_len - 1 bytes and NUL-terminated; a length of 0 or
// less copies nothing. Returns 0; -2 for a null argument; -3 when the member is missing or not a string.
int32_t GetStringFromJson(const cJSON* json, const char* item, char* out_value, int32_t out_value_len);

// True when the member is JSON true.
bool GetBoolFromJson(const cJSON* json, const char* item);
