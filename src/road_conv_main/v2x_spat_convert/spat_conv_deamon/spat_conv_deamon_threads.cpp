#include "spat_conv_deamon_threads.h"

#include <algorithm>
#include <string>
#include <utility>
#include <vector>

#include "v2x/v2xlog.h"
#include "v2x/v2xwatch.h"

namespace {

using Names = std::vector<std::string>;

v2xlog_tag_t g_log{"SPAT"};

constexpr auto LIMIT_SECONDS = static_cast<int>(v2x_watchedThread::LIMIT / 1000000);

bool HasName(const Names& names, const std::string& name) {
    return std::find(names.begin(), names.end(), name) != names.end();
}

} // namespace

bool v2xspatconv_CheckThreads(uint64_t now) {
    static Names loggedNames;
    Names stuckNames = v2x_watchedThread::FindStuck(now);
    for (const std::string& name : stuckNames) {
        if (!HasName(loggedNames, name)) {
            V2XLOG(g_log, V2XLOG_ERROR, "thread %s has made no progress for %d s; the watchdog is not fed",
                   name.c_str(), LIMIT_SECONDS);
        }
    }
    for (const std::string& name : loggedNames) {
        if (!HasName(stuckNames, name)) {
            V2XLOG(g_log, V2XLOG_INFO, "thread %s makes progress again", name.c_str());
        }
    }
    loggedNames = std::move(stuckNames);
    return loggedNames.empty();
}
