#include "spat_conv_deamon_status.h"

namespace {

// Indexed by v2xspatconv_stackState.
constexpr const char* STACK_STATES[] = {"not asked yet", "answers", "does not answer"};

// The longer the age, the coarser is the unit, so that the line of a source that stays stale changes rarely.
std::string FormatAge(uint64_t microseconds) {
    const uint64_t seconds = microseconds / 1000000;
    if (seconds < 120) {
        return std::to_string(seconds) + " s";
    }
    return seconds < 7200 ? std::to_string(seconds / 60) + " min" : std::to_string(seconds / 3600) + " h";
}

} // namespace

std::string v2xspatconv_FormatStatus(const v2xspatconv_sourceRow_t (&rows)[V2XSPATCONV_SOURCES],
                                     v2xspatconv_stackState stack, bool isCloudAvailable, uint64_t now) {
    std::string line;
    for (const auto source : V2XSPATCONV_ALL_SOURCES) {
        const v2xspatconv_sourceRow_t& row = rows[source];
        if (source == V2XSPATCONV_CLOUD && row.state == v2xspatconv_sourceState::unwatched) {
            continue;
        }
        const bool isStale = row.state == v2xspatconv_sourceState::stale;
        line += std::string(V2XSPATCONV_SOURCE_NAMES[source]) + " " +
                V2XSPATCONV_STATE_NAMES[static_cast<size_t>(row.state)] +
                (isStale ? " " + FormatAge(now - row.lastAccepted) : "") + ", ";
    }
    return line + "stack " + STACK_STATES[static_cast<size_t>(stack)] + ", cloud " +
           (isCloudAvailable ? "available" : "unavailable");
}
