#include "spat_conv_counts.h"

#include <iterator>

#include "v2x/v2xcount.h"
#include "v2x/v2xpub.h"

namespace {

using PathMap = std::map<std::string, std::vector<v2xspatconv_count_t>>;

// Adds the counts of one socket to `paths`, a PathMap.
void AddSocket(void* paths, const char* sockName, const v2xpub_UdpSocketStats_t* stats) {
    const v2xspatconv_count_t counts[] = {
        {"received", stats->received}, {"too_long", stats->tooLong},       {"kernel_drops", stats->kernelDrops},
        {"sent", stats->sent},         {"send_errors", stats->sendErrors}, {"refused_sender", stats->refusedSender},
    };
    auto& path = (*static_cast<PathMap*>(paths))[sockName];
    path.insert(path.end(), std::begin(counts), std::end(counts));
}

} // namespace

std::map<std::string, std::vector<v2xspatconv_count_t>> v2xspatconv_ReadCounts(void) {
    PathMap paths;
    for (const v2x_counter* counter = v2x_counter::First(); counter != nullptr; counter = counter->Next()) {
        paths[counter->Path()].push_back({counter->Name(), counter->Count()});
    }
    v2xpub_UdpSocketVisitStats(AddSocket, &paths);
    return paths;
}
