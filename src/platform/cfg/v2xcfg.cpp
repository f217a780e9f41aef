#include "v2x/v2xcfg.h"

#include "v2x/v2xlog.h"
#include "v2xcfg_context.h"
#include "v2xcfg_scan.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

namespace {

namespace fs = std::filesystem;

// The parsing time of libconfig grows with the square of the number of settings.
constexpr size_t MAX_FILE_BYTES = size_t{64} * 1024;

thread_local std::string g_errorText = "no error";

// Stores "location: reason" as the error text and returns `code`.
int32_t Fail(int32_t code, const std::string& location, const std::string& reason) {
    g_errorText = location + ": " + reason;
    return code;
}

// Collects and logs the error text if `code` is not 0. Returns `code`.
int32_t LogFailure(int32_t code) {
    if (code != 0 && v2xcfg_Collect(V2XCFG_ERROR, g_errorText.c_str())) {
        V2XLOG(g_vcfgLog, V2XLOG_ERROR, "%s", g_errorText.c_str());
    }
    return code;
}

std::string FormatLocation(const std::string& path, unsigned line) {
    return path + ":" + std::to_string(line);
}

// A setting and its location "file:line: key" for error texts. For a missing key the setting is null and the location
// has no line.
struct Value {
    const config_setting_t* setting;
    std::string location;

    int Type() const { return config_setting_type(setting); }
    bool IsInteger() const { return Type() == CONFIG_TYPE_INT || Type() == CONFIG_TYPE_INT64; }
    bool IsList() const { return Type() == CONFIG_TYPE_ARRAY || Type() == CONFIG_TYPE_LIST; }
    bool IsGroup() const { return Type() == CONFIG_TYPE_GROUP; }
};

// Finds the value of `key`. The element 0 of a single value is this value.
Value Find(const v2xcfg_context& context, std::string key) {
    constexpr std::string_view FIRST = ".[0]";
    // For an empty key libconfig would return the root setting.
    const config_setting_t* setting = key.empty() ? nullptr : config_lookup(&context.config, key.c_str());
    if (setting == nullptr && key.ends_with(FIRST)) {
        key.resize(key.size() - FIRST.size());
        setting = config_lookup(&context.config, key.c_str());
    }
    if (setting == nullptr) {
        return {nullptr, context.path + ": " + key};
    }
    return {setting, FormatLocation(context.path, config_setting_source_line(setting)) + ": " + key};
}

// Reads a regular file into `text`. Returns the reason of a failure, or an empty string on success.
std::string ReadFile(const std::string& path, std::string& text) {
    std::error_code error;
    const bool isRegular = fs::is_regular_file(path, error);
    if (error) {
        return error.message();
    }
    if (!isRegular) { // opening a FIFO would block until a process opens the FIFO for writing
        return "not a regular file";
    }
    std::ifstream file(path, std::ios::binary);
    text.resize(MAX_FILE_BYTES + 1);
    if (!file.read(text.data(), static_cast<std::streamsize>(text.size())) && !file.eof()) {
        return std::generic_category().message(errno);
    }
    text.resize(static_cast<size_t>(file.gcount()));
    return text.size() > MAX_FILE_BYTES ? "larger than 64 KiB" : "";
}

int32_t Load(v2xcfg_context& context) {
    const std::string& path = context.path;
    std::string text;
    const std::string reason = ReadFile(path, text);
    if (!reason.empty()) {
        return Fail(-3, path, reason);
    }
    if (const std::optional<v2xcfg_fault> fault = v2xcfg_Scan(text)) {
        return Fail(-4, FormatLocation(path, fault->line), fault->reason);
    }
    text += '\n'; // libconfig rejects a line comment that ends the text
    if (config_read_string(&context.config, text.c_str()) != CONFIG_TRUE) {
        const auto line = static_cast<unsigned>(config_error_line(&context.config));
        return Fail(-4, FormatLocation(path, line), config_error_text(&context.config));
    }
    return 0;
}

int32_t Open(V2X_CFGHANDLE* root, const char* path) {
    if (root == nullptr || path == nullptr) {
        return Fail(-2, "v2xcfg_InitContext", "null argument");
    }
    auto context = std::make_unique<v2xcfg_context>(path);
    const int32_t ret = Load(*context);
    if (ret == 0) {
        *root = context.release();
    }
    return ret;
}

int32_t FailWrongType(const Value& value, const std::string& expected) {
    return Fail(-3, value.location, "expected " + expected + ", found " + v2xcfg_TypeName(value.Type()));
}

int32_t GetBool(const Value& value, void* destination) {
    if (!value.IsInteger() && value.Type() != CONFIG_TYPE_BOOL) {
        return FailWrongType(value, "a boolean");
    }
    const int number =
        value.IsInteger() ? config_setting_get_int(value.setting) : config_setting_get_bool(value.setting);
    if (number != 0 && number != 1) {
        return Fail(-3, value.location, "expected true, false, 0 or 1, found " + std::to_string(number));
    }
    const bool flag = number == 1;
    std::memcpy(destination, &flag, sizeof(flag));
    return 0;
}

int32_t GetInt32(const Value& value, void* destination) {
    if (!value.IsInteger()) {
        return FailWrongType(value, "an integer");
    }
    const int32_t number = config_setting_get_int(value.setting);
    std::memcpy(destination, &number, sizeof(number));
    return 0;
}

int32_t GetNumber(const Value& value, void* destination) {
    if (!value.IsInteger() && value.Type() != CONFIG_TYPE_FLOAT) {
        return FailWrongType(value, "a number");
    }
    const double number =
        value.IsInteger() ? config_setting_get_int(value.setting) : config_setting_get_float(value.setting);
    std::memcpy(destination, &number, sizeof(number));
    return 0;
}

// Stores the number of members of a group or of elements of a list. A single value is a list of one element.
int32_t GetCount(const Value& value, bool isGroup, void* destination) {
    if (value.IsGroup() != isGroup) {
        return FailWrongType(value, isGroup ? "a group" : "a list");
    }
    const int32_t count = isGroup || value.IsList() ? config_setting_length(value.setting) : 1;
    std::memcpy(destination, &count, sizeof(count));
    return 0;
}

int32_t GetString(const Value& value, void* destination, int32_t* length) {
    if (value.Type() != CONFIG_TYPE_STRING) {
        return FailWrongType(value, "a string");
    }
    const std::string text = config_setting_get_string(value.setting);
    if (text.size() > static_cast<size_t>(*length)) {
        return Fail(-3, value.location,
                    "string of " + std::to_string(text.size()) + " characters, at most " + std::to_string(*length) +
                        " are allowed");
    }
    std::memcpy(destination, text.c_str(), text.size() + 1);
    *length = static_cast<int32_t>(text.size());
    return 0;
}

int32_t Get(const Value& value, e_v2xcfg_type type, void* destination, int32_t* length) {
    switch (type) {
    case V2XCFG_TYPE_BOOL:
        return GetBool(value, destination);
    case V2XCFG_TYPE_INT32:
        return GetInt32(value, destination);
    case V2XCFG_TYPE_STRING:
        return GetString(value, destination, length);
    case V2XCFG_TYPE_NUMBER:
        return GetNumber(value, destination);
    case V2XCFG_TYPE_GROUP:
    case V2XCFG_TYPE_LIST:
        return GetCount(value, type == V2XCFG_TYPE_GROUP, destination);
    }
    return Fail(-2, value.location, "unknown type " + std::to_string(type));
}

} // namespace

int32_t v2xcfg_InitContext(V2X_CFGHANDLE* root, const char* path) {
    return LogFailure(Open(root, path));
}

int32_t v2xcfg_GetNodeValue(V2X_CFGHANDLE root, e_v2xcfg_type type, const char* key, void* destination,
                            int32_t* length) {
    if (root == nullptr || key == nullptr || destination == nullptr) {
        return Fail(-2, "v2xcfg_GetNodeValue", "null argument");
    }
    if (type == V2XCFG_TYPE_STRING && (length == nullptr || *length < 0)) {
        return Fail(-2, key, "the length is null or negative");
    }
    const Value value = Find(*root, key);
    if (value.setting == nullptr) {
        return Fail(-1, root->path + ": " + key, "not found");
    }
    v2xcfg_AddFoundKey(key);
    return LogFailure(Get(value, type, destination, length));
}

int32_t v2xcfg_ExitContext(V2X_CFGHANDLE root) {
    delete root;
    return 0;
}

const char* v2xcfg_GetErrorText(void) {
    return g_errorText.c_str();
}

void v2xcfg_Report(v2xlog_tag_t* tag, e_v2xcfg_severity severity, V2X_CFGHANDLE root, const char* key,
                   const char* reason) {
    Fail(0, Find(*root, key).location, reason);
    if (v2xcfg_Collect(severity, g_errorText.c_str()) && tag != nullptr) {
        V2XLOG(*tag, severity, "%s", g_errorText.c_str());
    }
}
