// One member of a JSON object at a time: what the readers of the cloud's documents share.
//
// `item` is the key of a direct member of `json`, compared with regard to case. Failures are logged at level 2 under
// the tag "SCOM". Any thread; one document on one thread at a time.
#pragma once

#include <cjson/cJSON.h>
#include <cstdint>

// Stores the member's value as an int64_t at out_value: the number cut toward zero and held within 32 bits, -1 as -1; 1
// for true and 0 for a member of any other type. With a null out_value the value is read for nobody.
// Returns 0; -2 for a null json or item; -3 when there is no such member (nothing is stored).
int32_t GetIntDataFromJson(const cJSON* json, const char* item, void* out_value);

// Copies the member's text into out_value, cut to out_value_len - 1 bytes and NUL-terminated; a length of 0 or less
// copies nothing. Returns 0; -2 for a null argument; -3 when there is no such member, or none that is a string.
int32_t GetStringFromJson(const cJSON* json, const char* item, char* out_value, int32_t out_value_len);

// True when the member is there and true.
bool GetBoolFromJson(const cJSON* json, const char* item);
