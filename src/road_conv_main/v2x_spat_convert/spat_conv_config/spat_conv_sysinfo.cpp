// Reads the system-information file of the road-side unit.
#include <algorithm>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <memory>
#include <new>
#include <string>
#include <system_error>

#include "spat_conv_config.h"
#include "spat_conv_config_log.h"
#include "spat_conv_config_rows.h"
#include "v2x/v2xlog.h"

namespace {

constexpr uintmax_t SYSINFO_MAX_SIZE = 1U << 20;

// Returns the size in bytes of a regular file of at most 1 MiB; -1 for any other file.
int64_t FileSize(const char* path) {
    std::error_code error;
    if (!std::filesystem::is_regular_file(path, error)) {
        return -1;
    }
    const uintmax_t size = std::filesystem::file_size(path, error);
    return error || size > SYSINFO_MAX_SIZE ? -1 : static_cast<int64_t>(size);
}

constexpr int32_t TAG_MISSING = -3; // result of v2xspatconv_parseXML; each optional tag may be missing

// Collects the problem that an element has no end tag or is too long. v2xspatconv_parseXML has logged it.
void CollectInvalid(const std::string& path, const std::string& xml, const std::string& tag) {
    const size_t start = xml.find("<" + tag + ">");
    const auto line = 1 + std::count(xml.begin(), xml.begin() + static_cast<ptrdiff_t>(start), '\n');
    const std::string location = path + ":" + std::to_string(line) + ": " + tag;
    v2xcfg_Collect(V2XCFG_WARNING, (location + ": no end tag, or more than 31 characters").c_str());
}

} // namespace

int32_t v2xspatconv_parseXML(const char* xml, const char* tag, char* out_value, int32_t max_out_len) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_scfgLog, ret);
    if (xml == nullptr || tag == nullptr || out_value == nullptr) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    char startTag[32];
    char endTag[32];
    snprintf(startTag, sizeof startTag, "<%s>", tag);
    snprintf(endTag, sizeof endTag, "</%s>", tag);
    const char* start = strstr(xml, startTag);
    if (start == nullptr) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "get start tag error");
        return ret = -3;
    }
    const char* end = strstr(start, endTag);
    if (end == nullptr) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "get end tag error");
        return ret = -4;
    }
    start += strlen(startTag);
    const ptrdiff_t length = end - start;
    if (length >= max_out_len) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "content length is too large");
        return ret = -5;
    }
    memcpy(out_value, start, static_cast<size_t>(length));
    out_value[length] = '\0';
    return ret;
}

int32_t v2xspatconv_GetSysinfo(spat_conv_config_t* spatconv_cfg) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_scfgLog, ret);
    if (spatconv_cfg == nullptr) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    const char* path = spatconv_cfg->m_SysinfoName;
    const int64_t size = FileSize(path);
    std::ifstream file;
    if (size >= 0) {
        file.open(path, std::ios::binary);
    }
    if (!file.is_open()) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "open %s error", path);
        return ret = -1;
    }
    const std::unique_ptr<char[]> text(new (std::nothrow) char[static_cast<size_t>(size) + 1]);
    if (text == nullptr) {
        V2XLOG(g_scfgLog, V2XLOG_ERROR, "malloc error");
        return ret = -1;
    }
    file.read(text.get(), size);
    text[static_cast<size_t>(file.gcount())] = '\0';
    for (const v2xspatconv_tagRow_t& row : V2XSPATCONV_SYSINFO_TAGS) {
        char* field = spatconv_cfg->m_sysinfo.*row.field;
        if (v2xspatconv_parseXML(text.get(), row.tag, field, sizeof(rsu_sysinfo_t::m_device_id)) < TAG_MISSING) {
            CollectInvalid(path, text.get(), row.tag);
        }
    }
    return ret;
}
