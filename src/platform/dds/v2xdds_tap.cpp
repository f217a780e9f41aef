#include "v2xdds_tap.h"

#include <chrono>
#include <cstdio>

#include "v2x/v2xdds.h"
#include "v2x/v2xjournal.h"

void v2xdds_Tap(const std::string& topic, bool isSent, std::span<const uint8_t> octets) {
    if (!v2x_journal::Wants(v2x_journalKind::sample)) {
        return;
    }
    const auto now = std::chrono::system_clock::now().time_since_epoch();
    dds_tap_t tap = {};
    tap.time = static_cast<uint64_t>(std::chrono::duration_cast<std::chrono::microseconds>(now).count());
    tap.isSent = isSent;
    snprintf(tap.topic, sizeof tap.topic, "%s", topic.c_str());
    v2x_journal::WriteRecord(v2x_journalKind::sample, tap, octets);
}
