#include "v2x/v2xcfg.h"

#include "v2x/v2xlog.h"
#include "v2xcfg_scan.h"

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <new>
#include <optional>
#include <string>
#include <sys/stat.h>
#include <system_error>
#include <unistd.h>
#include <utility>

#include <libconfig.h>

struct v2xcfg_context {
    explicit v2xcfg_context(const char* from) : path(from) { config_init(&config); }
    ~v2xcfg_context() { config_destroy(&config); }
    v2xcfg_context(const v2xcfg_context&) = delete;
    v2xcfg_context& operator=(const v2xcfg_context&) = delete;

    const std::string path;
    config_t config{};
};

namespace {

constexpr size_t kMaxFile = size_t{1024} * 1024;

v2xlog_tag_t g_tag{"VCFG"};
thread_local char g_errorText[1024] = "no error";

// What an error is about; a line of 0 and a null key are left out of its text.
struct Place {
    const char* path;
    unsigned line;
    const char* key;
};

// Stores the error text and gives back `code`.
__attribute__((format(printf, 3, 4))) int32_t Fail(int32_t code, const Place& place, const char* format, ...) {
    char line[16] = "";
    if (place.line > 0) {
        std::snprintf(line, sizeof(line), ":%u", place.line);
    }
    char reason[256];
    va_list arguments;
    va_start(arguments, format);
    std::vsnprintf(reason, sizeof(reason), format, arguments);
    va_end(arguments);
    std::snprintf(g_errorText, sizeof(g_errorText), "%.500s%s: %.200s%s%s", place.path, line,
                  place.key == nullptr ? "" : place.key, place.key == nullptr ? "" : ": ", reason);
    return code;
}

int32_t Logged(int32_t code) {
    if (code != 0) {
        V2XLOG(g_tag, V2XLOG_ERROR, "%s", g_errorText);
    }
    return code;
}

class Descriptor {
public:
    explicit Descriptor(int fd) : m_fd(fd) {}
    ~Descriptor() {
        if (m_fd >= 0) {
            ::close(m_fd);
        }
    }
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    int Get() const { return m_fd; }

private:
    const int m_fd;
};

ssize_t ReadSome(int fd, char* to, size_t size) {
    ssize_t got = 0;
    do {
        got = ::read(fd, to, size);
    } while (got < 0 && errno == EINTR);
    return got;
}

// Reads all of a regular file; gives back what went wrong, or an empty text.
std::string ReadFile(const char* path, std::string& text) {
    const Descriptor file(::open(path, O_RDONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC));
    struct stat found {};
    if (file.Get() < 0 || ::fstat(file.Get(), &found) != 0) {
        return std::generic_category().message(errno);
    }
    if (!S_ISREG(found.st_mode)) {
        return "not a regular file";
    }
    char chunk[16 * 1024];
    ssize_t got = 0;
    while ((got = ReadSome(file.Get(), chunk, sizeof(chunk))) > 0) {
        text.append(chunk, static_cast<size_t>(got));
        if (text.size() > kMaxFile) {
            return "larger than 1 MiB";
        }
    }
    return got < 0 ? std::generic_category().message(errno) : "";
}

// How many settings the tree names; throws where one is without its name or text.
int32_t Named(const config_setting_t* setting) {
    const bool isGroup = config_setting_is_group(setting) == CONFIG_TRUE;
    const bool isText = config_setting_type(setting) == CONFIG_TYPE_STRING;
    if (isText && config_setting_get_string(setting) == nullptr) {
        throw std::bad_alloc();
    }
    int32_t count = 0;
    const int length = config_setting_is_aggregate(setting) == CONFIG_TRUE ? config_setting_length(setting) : 0;
    for (int i = 0; i < length; i++) {
        const config_setting_t* const member = config_setting_get_elem(setting, static_cast<unsigned>(i));
        if (member == nullptr || (isGroup && config_setting_name(member) == nullptr)) {
            throw std::bad_alloc();
        }
        count += (isGroup ? 1 : 0) + Named(member);
    }
    return count;
}

int32_t Load(v2xcfg_context& context) {
    const char* const path = context.path.c_str();
    std::string text;
    const std::string reason = ReadFile(path, text);
    if (!reason.empty()) {
        return Fail(-3, {path, 0, nullptr}, "%s", reason.c_str());
    }
    v2xcfg_fault fault{};
    int32_t settings = 0;
    if (!v2xcfg_Scan(text, fault, settings)) {
        return Fail(-4, {path, fault.line, nullptr}, "%s", fault.reason);
    }
    text += '\n'; // libconfig takes a line comment for an error when the text ends with it
    if (config_read_string(&context.config, text.c_str()) != CONFIG_TRUE) {
        const auto line = static_cast<unsigned>(config_error_line(&context.config));
        return Fail(-4, {path, line, nullptr}, "%s", config_error_text(&context.config));
    }
    // libconfig goes on without what it has no memory for.
    if (Named(config_root_setting(&context.config)) != settings) {
        throw std::bad_alloc();
    }
    return 0;
}

int32_t Open(V2X_CFGHANDLE* root, const char* path) {
    if (root == nullptr || path == nullptr) {
        return Fail(-2, {"v2xcfg_InitContext", 0, nullptr}, "null argument");
    }
    try {
        auto context = std::make_unique<v2xcfg_context>(path);
        const int32_t ret = Load(*context);
        if (ret == 0) {
            *root = context.release();
        }
        return ret;
    } catch (const std::bad_alloc&) {
        return Fail(-5, {path, 0, nullptr}, "no memory");
    }
}

// A value found, and how to name it in an error text.
struct Value {
    const config_setting_t* setting;
    Place place;

    int Type() const { return config_setting_type(setting); }
};

const char* TypeText(int type) {
    static constexpr struct {
        int type;
        const char* text;
    } kTypes[] = {
        {CONFIG_TYPE_GROUP, "a group"},    {CONFIG_TYPE_INT, "an integer"},
        {CONFIG_TYPE_INT64, "an integer"}, {CONFIG_TYPE_FLOAT, "a floating-point number"},
        {CONFIG_TYPE_STRING, "a string"},  {CONFIG_TYPE_BOOL, "a boolean"},
        {CONFIG_TYPE_ARRAY, "an array"},   {CONFIG_TYPE_LIST, "a list"},
    };
    for (const auto& row : kTypes) {
        if (row.type == type) {
            return row.text;
        }
    }
    return "nothing";
}

int32_t WrongType(const Value& value, const char* expected) {
    return Fail(-3, value.place, "expected %s, found %s", expected, TypeText(value.Type()));
}

// The value of an integer of either width.
std::optional<long long> Integer(const Value& value) {
    if (value.Type() == CONFIG_TYPE_INT) {
        return config_setting_get_int(value.setting);
    }
    if (value.Type() == CONFIG_TYPE_INT64) {
        return config_setting_get_int64(value.setting);
    }
    return std::nullopt;
}

int32_t GetBool(const Value& value, void* destination, int32_t* /*length*/) {
    const std::optional<long long> number =
        value.Type() == CONFIG_TYPE_BOOL ? config_setting_get_bool(value.setting) : Integer(value);
    if (!number) {
        return WrongType(value, "a boolean");
    }
    if (*number != 0 && *number != 1) {
        return Fail(-3, value.place, "expected true, false, 0 or 1, found %lld", *number);
    }
    const bool flag = *number == 1;
    std::memcpy(destination, &flag, sizeof(flag));
    return 0;
}

int32_t GetInt32(const Value& value, void* destination, int32_t* /*length*/) {
    const std::optional<long long> number = Integer(value);
    if (!number) {
        return WrongType(value, "an integer");
    }
    const auto narrow = static_cast<int32_t>(*number);
    if (narrow != *number) {
        return Fail(-3, value.place, "%lld is out of range, it needs more than 32 bits", *number);
    }
    std::memcpy(destination, &narrow, sizeof(narrow));
    return 0;
}

int32_t GetString(const Value& value, void* destination, int32_t* length) {
    if (value.Type() != CONFIG_TYPE_STRING) {
        return WrongType(value, "a string");
    }
    const char* const text = config_setting_get_string(value.setting);
    const size_t found = std::strlen(text);
    if (found > static_cast<size_t>(*length)) {
        return Fail(-3, value.place, "string of %zu characters, at most %d are taken", found, *length);
    }
    std::memcpy(destination, text, found + 1);
    *length = static_cast<int32_t>(found);
    return 0;
}

using Getter = int32_t (*)(const Value&, void*, int32_t*);

Getter GetterOf(e_v2xcfg_type type) {
    static constexpr std::pair<e_v2xcfg_type, Getter> kGetters[] = {
        {V2XCFG_TYPE_BOOL, GetBool},
        {V2XCFG_TYPE_INT32, GetInt32},
        {V2XCFG_TYPE_STRING, GetString},
    };
    for (const auto& [known, getter] : kGetters) {
        if (known == type) {
            return getter;
        }
    }
    return nullptr;
}

} // namespace

int32_t v2xcfg_InitContext(V2X_CFGHANDLE* root, const char* path) {
    return Logged(Open(root, path));
}

int32_t v2xcfg_GetNodeValue(V2X_CFGHANDLE root, e_v2xcfg_type type, const char* key, void* destination,
                            int32_t* length) {
    if (root == nullptr || key == nullptr || destination == nullptr) {
        return Fail(-2, {"v2xcfg_GetNodeValue", 0, nullptr}, "null argument");
    }
    const Getter getter = GetterOf(type);
    Place place{root->path.c_str(), 0, key};
    if (getter == nullptr) {
        return Fail(-2, place, "unknown type %d", type);
    }
    if (type == V2XCFG_TYPE_STRING && (length == nullptr || *length < 0)) {
        return Fail(-2, place, "string without a length");
    }
    if (*key == '\0') { // libconfig takes it for the whole tree
        return Fail(-2, place, "empty key");
    }
    const config_setting_t* const setting = config_lookup(&root->config, key);
    if (setting == nullptr) {
        return Fail(-1, place, "not found");
    }
    place.line = config_setting_source_line(setting);
    return Logged(getter({setting, place}, destination, length));
}

int32_t v2xcfg_ExitContext(V2X_CFGHANDLE root) {
    delete root;
    return 0;
}

const char* v2xcfg_GetErrorText(void) {
    return g_errorText;
}
