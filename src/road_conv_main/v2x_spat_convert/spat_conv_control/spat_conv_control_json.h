// Writes the JSON lines of the control socket with cJSON. Private to the control socket.
#pragma once

#include <cjson/cJSON.h>

#include <cstdint>
#include <memory>
#include <string>

#include "v2x/v2xpub.h"

struct v2xspatconv_jsonDeleter {
    void operator()(cJSON* json) const { cJSON_Delete(json); }
};
using v2xspatconv_json_t = std::unique_ptr<cJSON, v2xspatconv_jsonDeleter>;

// Returns the time in ISO 8601: "2026-11-22T20:04:41.123Z". `wallTime` is in microseconds.
std::string v2xspatconv_FormatTime(uint64_t wallTime);

// Returns the address as "192.168.1.20:8001".
std::string v2xspatconv_FormatAddress(v2xpub_address_t address);

// Returns {"MEMBER": "NAME", "time": ...}, the start of a reply or event. `wallTime` is in microseconds.
v2xspatconv_json_t v2xspatconv_StartLine(const char* member, const char* name, uint64_t wallTime);

// Add a member to `object`. A null text is written as null. Microseconds are written as seconds, rounded to
// milliseconds.
void v2xspatconv_AddText(cJSON* object, const char* name, const char* text);
void v2xspatconv_AddSeconds(cJSON* object, const char* name, uint64_t microseconds);
// Adds the remaining time of a light. `timeLeft` is in 0.1 s, or V2XIPC_TIME_UNKNOWN.
void v2xspatconv_AddTimeLeft(cJSON* object, uint16_t timeLeft);

// Appends an empty object to an array and returns the object.
cJSON* v2xspatconv_AppendObject(cJSON* array);

// Returns the text of the object with a line feed at its end. A '?' replaces each byte that is not part of a UTF-8
// character.
std::string v2xspatconv_PrintLine(const cJSON* object);
