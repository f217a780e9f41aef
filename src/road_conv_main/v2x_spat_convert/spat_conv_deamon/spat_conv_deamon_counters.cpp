#include "spat_conv_deamon_counters.h"

#include <cinttypes>
#include <cstdint>
#include <map>
#include <string>

#include "v2x/v2xcount.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace {

v2xlog_tag_t g_log{"SPAT"};

// The counters of one data path: the text of the log line, and the sum of the counts. Counts never decrease, so an
// equal sum means that no count has changed.
struct PathCounts {
    std::string text;
    uint64_t sum = 0;
};
using PathMap = std::map<std::string, PathCounts>;

// Adds one count to its data path. Ignores a count of 0.
void AddCount(PathMap& paths, const char* pathName, const char* name, uint64_t count) {
    if (count > 0) {
        PathCounts& path = paths[pathName];
        path.text += (path.text.empty() ? "" : ", ") + std::string(name) + " " + std::to_string(count);
        path.sum += count;
    }
}

// Adds the counts of one socket to `paths`, a PathMap.
void AddSocket(void* paths, const char* sockName, const v2xpub_UdpSocketStats_t* stats) {
    const struct {
        const char* name;
        uint64_t count;
    } rows[] = {
        {"received", stats->received}, {"too_long", stats->tooLong},       {"kernel_drops", stats->kernelDrops},
        {"sent", stats->sent},         {"send_errors", stats->sendErrors}, {"refused_sender", stats->refusedSender},
    };
    for (const auto& row : rows) {
        AddCount(*static_cast<PathMap*>(paths), sockName, row.name, row.count);
    }
}

} // namespace

void v2xspatconv_LogCounters(bool all) {
    if (!v2xlog_Enabled(g_log, V2XLOG_INFO)) {
        return;
    }
    // Sum of each data path at the previous call. Never destroyed, because threads may run during the exit.
    static auto& loggedSums = *new std::map<std::string, uint64_t>;
    PathMap paths;
    for (const v2x_counter* counter = v2x_counter::First(); counter != nullptr; counter = counter->Next()) {
        AddCount(paths, counter->Path(), counter->Name(), counter->Count());
    }
    v2xpub_UdpSocketVisitStats(AddSocket, &paths);
    for (const auto& [name, path] : paths) {
        uint64_t& loggedSum = loggedSums[name];
        if (all || loggedSum != path.sum) {
            V2XLOG(g_log, V2XLOG_INFO, "counters %s: %s", name.c_str(), path.text.c_str());
        }
        loggedSum = path.sum;
    }
}
