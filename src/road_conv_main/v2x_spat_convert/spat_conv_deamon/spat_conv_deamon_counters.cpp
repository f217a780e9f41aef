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

struct Path {
    std::string text;
    uint64_t sum = 0; // counts never decrease, so an equal sum means no change
};
using Paths = std::map<std::string, Path>;

void Add(Paths& paths, const char* pathName, const char* name, uint64_t count) {
    if (count > 0) {
        Path& path = paths[pathName];
        path.text += (path.text.empty() ? "" : ", ") + std::string(name) + " " + std::to_string(count);
        path.sum += count;
    }
}

void AddSocket(void* paths, const char* sockName, const v2xpub_UdpSocketStats_t* stats) {
    const struct {
        const char* name;
        uint64_t count;
    } rows[] = {
        {"received", stats->received}, {"too_long", stats->tooLong},       {"kernel_drops", stats->kernelDrops},
        {"sent", stats->sent},         {"send_errors", stats->sendErrors},
    };
    for (const auto& row : rows) {
        Add(*static_cast<Paths*>(paths), sockName, row.name, row.count);
    }
}

} // namespace

void v2xspatconv_LogCounters(bool all) {
    if (!v2xlog_Enabled(g_log, V2XLOG_INFO)) {
        return;
    }
    static auto& logged = *new std::map<std::string, uint64_t>; // sums by path; never destroyed: threads run on at exit
    Paths paths;
    for (const v2x_counter* counter = v2x_counter::First(); counter != nullptr; counter = counter->Next()) {
        Add(paths, counter->Path(), counter->Name(), counter->Count());
    }
    v2xpub_UdpSocketVisitStats(AddSocket, &paths);
    for (const auto& [name, path] : paths) {
        uint64_t& before = logged[name];
        if (all || before != path.sum) {
            V2XLOG(g_log, V2XLOG_INFO, "counters %s: %s", name.c_str(), path.text.c_str());
        }
        before = path.sum;
    }
}
