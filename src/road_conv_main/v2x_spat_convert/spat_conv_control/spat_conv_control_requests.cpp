#include "spat_conv_control_requests.h"

#include <cstring>
#include <iterator>

#include "spat_conv_config_settings.h"
#include "spat_conv_control_json.h"
#include "spat_conv_control_state.h"
#include "spat_conv_counts.h"
#include "v2x/v2xjournal.h"
#include "v2x/v2xlog.h"

namespace {

using Context = v2xspatconv_controlContext_t;

constexpr uint32_t Bit(v2x_journalKind kind) {
    return uint32_t{1} << static_cast<uint32_t>(kind);
}

void AddCounters(cJSON* reply, const Context& /*context*/) {
    cJSON* const paths = cJSON_AddObjectToObject(reply, "counters");
    for (const auto& [path, counts] : v2xspatconv_ReadCounts()) {
        cJSON* const object = cJSON_AddObjectToObject(paths, path.c_str());
        for (const v2xspatconv_count_t& count : counts) {
            cJSON_AddNumberToObject(object, count.name, static_cast<double>(count.value));
        }
    }
}

void AddConfig(cJSON* reply, const Context& context) {
    cJSON_AddItemToObject(reply, "settings", v2xspatconv_ListSettings(*context.config));
}

void AddLevels(cJSON* reply, const Context& /*context*/) {
    cJSON* const levels = cJSON_AddArrayToObject(reply, "levels");
    for (int32_t i = 0; i < v2xlog_GetTagNum(); i++) {
        char name[V2XLOG_NAME_SIZE + 1] = "";
        int16_t level = 0;
        if (v2xlog_GetTagLevelByIndex(i, reinterpret_cast<uint8_t*>(name), &level) == 0) {
            cJSON* const object = v2xspatconv_AppendObject(levels);
            cJSON_AddStringToObject(object, "tag", name);
            cJSON_AddNumberToObject(object, "level", level);
        }
    }
}

struct Command {
    const char* name;
    void (*addMembers)(cJSON* reply, const Context& context); // may be null
    uint32_t kinds;
};

constexpr Command COMMANDS[] = {
    {"status", v2xspatconv_AddStatus, 0},
    {"lights", v2xspatconv_AddLights, 0},
    {"counters", AddCounters, 0},
    {"config", AddConfig, 0},
    {"levels", AddLevels, 0},
    {"watch", nullptr, Bit(v2x_journalKind::record) | Bit(v2x_journalKind::state)},
    {"tap", nullptr, Bit(v2x_journalKind::datagram) | Bit(v2x_journalKind::sample)},
};

std::string ListCommands() {
    std::string names;
    for (const Command& command : COMMANDS) {
        names += (names.empty() ? "" : ", ") + std::string(command.name);
    }
    return names;
}

// Parses the request. The length includes the NUL: cJSON 1.7.15 can read one byte past the length. Returns null for any
// text but one JSON value.
v2xspatconv_json_t Parse(const std::string& request) {
    if (request.find('\0') != std::string::npos) {
        return nullptr;
    }
    return v2xspatconv_json_t(cJSON_ParseWithLengthOpts(request.c_str(), request.size() + 1, nullptr, 1));
}

} // namespace

std::string v2xspatconv_FormatError(const char* reason) {
    const v2xspatconv_json_t error(cJSON_CreateObject());
    cJSON_AddStringToObject(error.get(), "error", reason);
    return v2xspatconv_PrintLine(error.get());
}

v2xspatconv_answer_t v2xspatconv_AnswerRequest(const std::string& request, const Context& context) {
    const v2xspatconv_json_t json = Parse(request);
    const cJSON* const cmd = cJSON_GetObjectItemCaseSensitive(json.get(), "cmd");
    if (!cJSON_IsObject(json.get())) {
        return {v2xspatconv_FormatError("the request is not a JSON object")};
    }
    if (!cJSON_IsString(cmd)) {
        return {v2xspatconv_FormatError("the request has no text \"cmd\"")};
    }
    for (const Command& command : COMMANDS) {
        if (strcmp(command.name, cmd->valuestring) == 0) {
            const v2xspatconv_json_t reply =
                v2xspatconv_StartLine("reply", command.name, v2xpub_CommGetCurrentTime64());
            if (command.addMembers != nullptr) {
                command.addMembers(reply.get(), context);
            }
            return {v2xspatconv_PrintLine(reply.get()), command.kinds};
        }
    }
    return {v2xspatconv_FormatError(("unknown cmd, expected one of " + ListCommands()).c_str())};
}
