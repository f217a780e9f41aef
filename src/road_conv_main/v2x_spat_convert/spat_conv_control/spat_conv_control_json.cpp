#include "spat_conv_control_json.h"

#include <cmath>
#include <cstdio>
#include <ctime>

#include "v2x/v2xipc_data.h"

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
    return std::string(text != nullptr ? text.get() : "") + "\n";
}
