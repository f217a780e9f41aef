#include "v2x/v2xcfg.h"

#include "v2x/v2xlog.h"
#include "v2xcfg_scan.h"

#include <cerrno>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <optional>
#include <string>
#include <system_error>

#include <libconfig.h>

struct v2xcfg_context {
    explicit v2xcfg_context(const char* file) : path(file) { config_init(&config); }
    ~v2xcfg_context() { config_destroy(&config); }
    v2xcfg_context(const v2xcfg_context&) = delete;
    v2xcfg_context& operator=(const v2xcfg_context&) = delete;

    const std::string path;
    config_t config{};
};

namespace {

namespace fs = std::filesystem;

// The parsing time of libconfig grows with the square of the number of settings.
constexpr size_t MAX_FILE_BYTES = size_t{64} * 1024;

v2xlog_tag_t g_log{"VCFG"};
thread_local std::string g_errorText = "no error";

// Stores "location: reason" as the error text and returns `code`.
int32_t Fail(int32_t code, const std::string& location, const std::string& reason) {
    g_errorText = location + ": " + reason;
    return code;
}

// Logs the error text if `code` is not 0. Returns `code`.
int32_t LogFailure(int32_t code) {
    if (code != 0) {
        V2XLOG(g_log, V2XLOG_ERROR, "%s", g_errorText.c_str());
    }
    return code;
}

std::string FormatLocation(const std::string& path, unsigned line) {
    return path + ":" + std::to_string(line);
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

// A setting and its location "file:line: key" for error texts.
struct Value {
    const config_setting_t* setting;
    std::string location;

    int Type() const { return config_setting_type(setting); }
    bool IsInteger() const { return Type() == CONFIG_TYPE_INT || Type() == CONFIG_TYPE_INT64; }
};

int32_t FailWrongType(const Value& value, const std::string& expected) {
    static constexpr const char* NAMES[] = {
        "nothing",  "a group",   "an integer", "an integer", "a floating-point number",
        "a string", "a boolean", "an array",   "a list",
    };
    static_assert(std::size(NAMES) == CONFIG_TYPE_LIST + 1);
    return Fail(-3, value.location, "expected " + expected + ", found " + NAMES[value.Type()]);
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
    // For an empty key libconfig would return the root setting.
    const config_setting_t* const setting = *key == '\0' ? nullptr : config_lookup(&root->config, key);
    if (setting == nullptr) {
        return Fail(-1, root->path + ": " + key, "not found");
    }
    const std::string location = FormatLocation(root->path, config_setting_source_line(setting)) + ": " + key;
    return LogFailure(Get({setting, location}, type, destination, length));
}

int32_t v2xcfg_ExitContext(V2X_CFGHANDLE root) {
    delete root;
    return 0;
}

const char* v2xcfg_GetErrorText(void) {
    return g_errorText.c_str();
}
