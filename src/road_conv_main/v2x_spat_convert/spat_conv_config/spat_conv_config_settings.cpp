#include "spat_conv_config_settings.h"

#include <algorithm>
#include <cstring>
#include <string>
#include <utility>
#include <vector>

#include "spat_conv_config_guard.h"
#include "spat_conv_config_rows.h"
#include "spat_conv_config_show.h"
#include "v2x/v2xcfg.h"
#include "v2x/v2xipc.h"

namespace {

constexpr char CFG_FILE[] = "conf/v2x_spat_convert.cfg";
constexpr char IPC_FILE[] = "conf/v2x_ipc.cfg";

struct Setting {
    std::string key;
    cJSON* value;
};
using Settings = std::vector<Setting>;

std::string GroupOf(const std::string& key) {
    return key.substr(0, key.rfind('.'));
}

// Adds a setting behind the settings of the same group.
void Add(Settings& settings, const std::string& key, cJSON* value) {
    const auto last = std::find_if(settings.rbegin(), settings.rend(),
                                   [&](const Setting& other) { return GroupOf(other.key) == GroupOf(key); });
    settings.insert(last != settings.rend() ? last.base() : settings.end(), {key, value});
}

// Returns the value of a field. The adapters use the low 16 bits of a port.
cJSON* ShowField(const spat_conv_config_t& config, const v2xspatconv_keyRow_t& row) {
    const char* const field = reinterpret_cast<const char*>(&config) + row.offset;
    int32_t number = 0;
    switch (row.type) {
    case V2XCFG_TYPE_BOOL:
        return cJSON_CreateBool(*field != 0);
    case V2XCFG_TYPE_STRING:
        return cJSON_CreateString(field);
    default:
        memcpy(&number, field, sizeof number);
        return cJSON_CreateNumber(std::string_view(row.key).ends_with("Port") ? static_cast<uint16_t>(number) : number);
    }
}

Settings ListConfig(const spat_conv_config_t& config) {
    Settings settings;
    const auto addRow = [&](const v2xspatconv_keyRow_t& row) { Add(settings, row.key, ShowField(config, row)); };
    addRow(V2XSPATCONV_SYSINFO_ROW);
    std::for_each(std::begin(V2XSPATCONV_IDENTITY_ROWS), std::end(V2XSPATCONV_IDENTITY_ROWS), addRow);
    Add(settings, V2XSPATCONV_PHASE_GROUP, v2xspatconv_ShowPhases(config.m_phase_relationship.m_phaseid));
    std::for_each(std::begin(V2XSPATCONV_OPTIONAL_ROWS), std::end(V2XSPATCONV_OPTIONAL_ROWS), addRow);
    v2xspatconv_VisitGuard(config, [&](const char* key, cJSON* value) {
        std::string name = key;
        Add(settings, name.ends_with('#') ? GroupOf(name) : name, value);
    });
    return settings;
}

Settings ListIpc() {
    Settings settings;
    const auto add = [](void* list, const char* key, const char* text, int32_t number) {
        cJSON* const value = text != nullptr ? cJSON_CreateString(text) : cJSON_CreateNumber(number);
        static_cast<Settings*>(list)->push_back({key, value});
    };
    v2xipc_VisitSettings(add, &settings);
    return settings;
}

void AppendSetting(cJSON* array, const char* file, const char* key, cJSON* value, bool isDefault) {
    cJSON* const object = cJSON_CreateObject();
    cJSON_AddStringToObject(object, "file", file);
    cJSON_AddStringToObject(object, "key", key);
    cJSON_AddItemToObject(object, "value", value);
    cJSON_AddBoolToObject(object, "default", isDefault);
    cJSON_AddItemToArray(array, object);
}

} // namespace

cJSON* v2xspatconv_ListSettings(const spat_conv_config_t& config) {
    cJSON* const array = cJSON_CreateArray();
    const std::pair<const char*, Settings> files[] = {{CFG_FILE, ListConfig(config)}, {IPC_FILE, ListIpc()}};
    for (const auto& [file, settings] : files) {
        for (const Setting& setting : settings) {
            AppendSetting(array, file, setting.key.c_str(), setting.value, !v2xcfg_HasKey(setting.key.c_str()));
        }
    }
    for (const v2xspatconv_tagRow_t& row : V2XSPATCONV_SYSINFO_TAGS) {
        const char* const text = config.m_sysinfo.*row.field;
        AppendSetting(array, config.m_SysinfoName, row.tag, cJSON_CreateString(text), *text == '\0');
    }
    return array;
}
