#include <cstring>

#include "fakes.h"
#include "v2x/v2xcfg.h"

struct v2xcfg_context {};

namespace {

v2xcfg_context context;

template <typename T>
int32_t give(const std::variant<bool, int32_t, std::string>& value, void* destination) {
    const T* held = std::get_if<T>(&value);
    if (held == nullptr) {
        return -3;
    }
    memcpy(destination, held, sizeof *held);
    return 0;
}

int32_t giveString(const std::variant<bool, int32_t, std::string>& value, void* destination, int32_t length) {
    const std::string* held = std::get_if<std::string>(&value);
    if (held == nullptr || static_cast<int32_t>(held->size()) > length) {
        return -3;
    }
    memcpy(destination, held->c_str(), held->size() + 1);
    return 0;
}

} // namespace

int32_t v2xcfg_InitContext(V2X_CFGHANDLE* root, const char* path) {
    fakes::journal.push_back(std::string("cfg.InitContext ") + path);
    *root = &context;
    return 0;
}

int32_t v2xcfg_GetNodeValue(V2X_CFGHANDLE, e_v2xcfg_type type, const char* key, void* destination, int32_t* length) {
    const auto found = fakes::cfgTree.find(key);
    if (found == fakes::cfgTree.end()) {
        return -1;
    }
    switch (type) {
    case V2XCFG_TYPE_BOOL:
        return give<bool>(found->second, destination);
    case V2XCFG_TYPE_INT32:
        return give<int32_t>(found->second, destination);
    default:
        return giveString(found->second, destination, *length);
    }
}

bool v2xcfg_HasKey(const char* key) {
    return fakes::cfgTree.contains(key);
}

int32_t v2xcfg_ExitContext(V2X_CFGHANDLE) {
    return 0;
}

const char* v2xcfg_GetErrorText(void) {
    return "";
}

bool v2xcfg_Collect(e_v2xcfg_severity, const char*) {
    return true;
}

void v2xcfg_Report(v2xlog_tag_t*, e_v2xcfg_severity, V2X_CFGHANDLE, const char*, const char*) {}

void v2xcfg_ReportUnknownKeys(v2xlog_tag_t*, V2X_CFGHANDLE, const char* const*, int32_t) {}
