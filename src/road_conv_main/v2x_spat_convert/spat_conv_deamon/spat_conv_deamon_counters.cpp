#include "spat_conv_deamon_counters.h"

#include <cstdint>
#include <map>
#include <string>

#include "spat_conv_counts.h"
#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"SPAT"};

} // namespace

void v2xspatconv_LogCounters(bool all) {
    if (!v2xlog_Enabled(g_log, V2XLOG_INFO)) {
        return;
    }
    // Sum of each data path at the previous call. Counts never decrease, so an equal sum means that no count has
    // changed. Never destroyed, because threads may run during the exit.
    static auto& loggedSums = *new std::map<std::string, uint64_t>;
    for (const auto& [path, counts] : v2xspatconv_ReadCounts()) {
        std::string text;
        uint64_t sum = 0;
        for (const v2xspatconv_count_t& count : counts) {
            if (count.value > 0) {
                text += (text.empty() ? "" : ", ") + std::string(count.name) + " " + std::to_string(count.value);
                sum += count.value;
            }
        }
        uint64_t& loggedSum = loggedSums[path];
        if (sum > 0 && (all || loggedSum != sum)) {
            V2XLOG(g_log, V2XLOG_INFO, "counters %s: %s", path.c_str(), text.c_str());
        }
        loggedSum = sum;
    }
}
