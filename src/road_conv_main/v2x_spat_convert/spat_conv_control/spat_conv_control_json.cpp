#include "spat_conv_control_json.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "v2x/v2xipc_data.h"

namespace {

// Returns the number of bytes of the UTF-8 character at the start of the NUL-terminated text, or 0 if it is invalid
// (RFC 3629).
size_t LengthOfCharacter(const char* text) {
    const auto first = static_cast<uint8_t>(text[0]);
    const auto second = static_cast<uint8_t>(first < 0x80 ? 0 : text[1]);
    const size_t length = first < 0x80   ? 1
                          : first < 0xC2 ? 0
                          : first < 0xE0 ? 2
                          : first < 0xF0 ? 3
                          : first < 0xF5 ? 4
                                         : 0;
    const bool isOutOfRange = (first == 0xE0 && second < 0xA0) || (first == 0xED && second > 0x9F) ||
                              (first == 0xF0 && second < 0x90) || (first == 0xF4 && second > 0x8F);
    for (size_t i = 1; i < length; i++) {
        if ((static_cast<uint8_t>(text[i]) & 0xC0) != 0x80) {
            return 0;
        }
    }
    return isOutOfRange ? 0 : length;
}

} // namespace

std::string v2xspatconv_FormatTime(uint64_t wallTime) {
    const auto seconds = static_cast<time_t>(wallTime / 1000000);
    tm utc = {};
    gmtime_r(&seconds, &utc);
    char day[32];
    strftime(day, sizeof day, "%Y-%m-%dT%H:%M:%S", &utc);
    char text[48];
    snprintf(text, sizeof text, "%s.%03uZ", day, static_cast<unsigned>(wallTime / 1000 % 1000));
    return text;
}

std::string v2xspatconv_FormatAddress(v2xpub_address_t address) {
    return v2xpub_FormatIp(address).text + (":" + std::to_string(address.port));
}

v2xspatconv_json_t v2xspatconv_StartLine(const char* member, const char* name, uint64_t wallTime) {
    v2xspatconv_json_t line(cJSON_CreateObject());
    cJSON_AddStringToObject(line.get(), member, name);
    cJSON_AddStringToObject(line.get(), "time", v2xspatconv_FormatTime(wallTime).c_str());
    return line;
}

void v2xspatconv_AddText(cJSON* object, const char* name, const char* text) {
    if (text != nullptr) {
        cJSON_AddStringToObject(object, name, text);
    } else {
        cJSON_AddNullToObject(object, name);
    }
}

void v2xspatconv_AddSeconds(cJSON* object, const char* name, uint64_t microseconds) {
    cJSON_AddNumberToObject(object, name, std::round(static_cast<double>(microseconds) / 1000) / 1000);
}

void v2xspatconv_AddTimeLeft(cJSON* object, uint16_t timeLeft) {
    if (timeLeft != V2XIPC_TIME_UNKNOWN) {
        cJSON_AddNumberToObject(object, "time_left", timeLeft / 10.0);
    } else {
        cJSON_AddNullToObject(object, "time_left");
    }
}

cJSON* v2xspatconv_AppendObject(cJSON* array) {
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddItemToArray(array, object);
    return object;
}

std::string v2xspatconv_PrintLine(const cJSON* object) {
    const std::unique_ptr<char, decltype(&cJSON_free)> text(cJSON_PrintUnformatted(object), cJSON_free);
    std::string line = std::string(text != nullptr ? text.get() : "") + "\n";
    for (size_t at = 0; at < line.size();) {
        const size_t length = LengthOfCharacter(line.c_str() + at);
        line[at] = length == 0 ? '?' : line[at];
        at += length == 0 ? 1 : length;
    }
    return line;
}
