#include "spat_conv_deamon_codec_log.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <iterator>
#include <mutex>

#include "v2x/v2xlog.h"
#include "v2xapp_log.h"

namespace {

static_assert(int32_t{V2XCODEC_LOG_ERROR} == V2XLOG_ERROR && int32_t{V2XCODEC_LOG_WARN} == V2XLOG_WARN &&
              int32_t{V2XCODEC_LOG_DEBUG} == V2XLOG_DEBUG);

v2xlog_tag_t g_tags[] = {{"UPER"}, {"GBSM"}}; // the codec's tags

// The codec's log statements that have logged a line. The codec has fewer than twenty.
constinit std::array<v2xlog_site, 32> g_sites{};
constinit std::mutex g_sitesMutex;

// Returns null for a tag that is not the codec's.
v2xlog_tag_t* FindTag(const char* name) {
    auto* const found = std::ranges::find_if(g_tags, [&](auto& tag) { return std::strcmp(tag.name, name) == 0; });
    return found == std::end(g_tags) ? nullptr : found;
}

// Returns the log statement at `line` of `file`, which stays valid.
v2xlog_site& FindSite(const char* file, int32_t line) {
    const std::lock_guard guard(g_sitesMutex);
    for (v2xlog_site& site : g_sites) {
        if (site.file == nullptr) {
            site.file = file;
            site.line = line;
        }
        if (site.line == line && std::strcmp(site.file, file) == 0) {
            return site;
        }
    }
    return g_sites.back();
}

bool IsEnabled(const char* name, int32_t level) {
    v2xlog_tag_t* tag = FindTag(name);
    return tag != nullptr && v2xlog_Enabled(*tag, level);
}

void Write(const char* name, int32_t level, const char* file, int32_t line, const char* function, const char* text) {
    v2xlog_tag_t* tag = FindTag(name);
    if (tag != nullptr) {
        v2xlog_Format(v2xlog_Handle(*tag), level, 1, FindSite(file, line), function, "%s", text);
    }
}

constexpr v2xcodec_log_t CODEC_LOG{IsEnabled, Write};

} // namespace

void v2xspatconv_SetCodecLog() {
    v2xcodec_setLog(&CODEC_LOG);
}
