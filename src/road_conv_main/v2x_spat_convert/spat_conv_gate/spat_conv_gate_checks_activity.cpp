#include "spat_conv_gate_checks_activity.h"

#include <algorithm>
#include <bitset>
#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <iterator>
#include <span>

#include "spat_conv_gate_checks.h"
#include "spat_conv_gate_log.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xlog.h"

namespace {

constexpr uint64_t ACTIVE_FOR = 60000000; // time from the last sight to the end of an activity, in microseconds

// Index: e_v2xspatconv_check.
struct {
    v2x_counter counter;
    bool isNotice;       // logged once for each phase, never active
    const char* subject; // the phases in the last line; null: the last line names none
} g_checks[] = {
    {{"check", "conflict"}, false, "SPAT phases"},
    {{"check", "jump"}, false, "SPAT phases"},
    {{"check", "frozen"}, false, "SPAT phases"},
    {{"check", "no_yellow"}, false, "SPAT phases"},
    {{"check", "duplicate"}, false, "device phases"},
    {{"check", "disagree"}, false, "SPAT phases"},
    {{"check", "sender"}, false, nullptr},
    {{"check", "unmapped"}, true, nullptr},
    {{"check", "cut_off"}, true, nullptr},
};
static_assert(std::size(g_checks) == V2XSPATCONV_CHECKS);

// One check of one source.
struct Activity {
    bool isActive = false;
    uint64_t count = 0; // sights since the start
    uint64_t lastSeen = 0;
    std::bitset<256> phases; // seen since the start; of a notice: since the start of the process
};
Activity g_activities[V2XSPATCONV_CHECKS][V2XSPATCONV_SOURCES];

// Writes ", SUBJECT 1 2 3" to `text`. Omits the numbers that do not fit.
void ListPhases(const Activity& activity, const char* subject, std::span<char> text) {
    int32_t length = snprintf(text.data(), text.size(), ", %s", subject);
    for (size_t phase = 0; phase < activity.phases.size(); phase++) {
        const std::span<char> rest = text.subspan(static_cast<size_t>(length));
        if (activity.phases[phase] && rest.size() >= sizeof " 255") {
            length += snprintf(rest.data(), rest.size(), " %zu", phase);
        }
    }
}

void End(int32_t check, int32_t source) {
    Activity& activity = g_activities[check][source];
    char phases[128] = "";
    if (g_checks[check].subject != nullptr) {
        ListPhases(activity, g_checks[check].subject, phases);
    }
    v2xspatconv_GateLog(V2XLOG_INFO, "check %s: %s: not seen for a minute, %" PRIu64 " times before%s",
                        g_checks[check].counter.Name(), V2XSPATCONV_SOURCE_NAMES[source], activity.count, phases);
    activity = {};
}

} // namespace

void v2xspatconv_ActivityClear(void) {
    for (auto& sources : g_activities) {
        std::ranges::fill(sources, Activity{});
    }
}

void v2xspatconv_ActivitySee(e_v2xspatconv_check check, e_v2xspatconv_source source, uint64_t now,
                             std::initializer_list<uint8_t> phases, const char* format, ...) {
    auto& row = g_checks[check];
    Activity& activity = g_activities[check][source];
    const bool isNew = row.isNotice ? !activity.phases[*phases.begin()] : !activity.isActive;
    bool isLogged = true;
    if (isNew) {
        char text[160];
        va_list values;
        va_start(values, format);
        vsnprintf(text, sizeof text, format, values);
        va_end(values);
        isLogged = v2xspatconv_GateLog(row.isNotice ? V2XLOG_INFO : V2XLOG_WARN, "check %s: %s: %s", row.counter.Name(),
                                       V2XSPATCONV_SOURCE_NAMES[source], text);
    }
    row.counter.Add();
    activity.isActive = !row.isNotice;
    activity.count++;
    activity.lastSeen = now;
    for (const uint8_t phase : phases) {
        activity.phases.set(phase, isLogged); // a notice that is not logged is logged with the next record
    }
}

uint64_t v2xspatconv_ChecksTick(uint64_t now) {
    uint64_t next = UINT64_MAX;
    for (int32_t check = 0; check < V2XSPATCONV_CHECKS; check++) {
        for (int32_t source = 0; source < V2XSPATCONV_SOURCES; source++) {
            const Activity& activity = g_activities[check][source];
            const uint64_t end = activity.lastSeen + ACTIVE_FOR;
            if (activity.isActive && now >= end) {
                End(check, source);
            } else if (activity.isActive) {
                next = std::min(next, end);
            }
        }
    }
    return next;
}
