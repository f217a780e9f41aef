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

// The activity of one check of one source.
struct Activity {
    uint64_t count = 0;      // sights since its start
    std::bitset<256> phases; // seen since its start; of a notice: since the start of the process
};
Activity g_activities[V2XSPATCONV_CHECKS][V2XSPATCONV_SOURCES];
v2xspatconv_checkRow_t g_rows[V2XSPATCONV_CHECKS][V2XSPATCONV_SOURCES];

v2xspatconv_stateEvent_t MakeEvent(int32_t check, int32_t source, bool isActive) {
    return {.type = v2xspatconv_stateEvent_t::Type::check,
            .source = static_cast<uint8_t>(source),
            .check = static_cast<uint8_t>(check),
            .isActive = isActive};
}

void AddPhase(v2xspatconv_stateEvent_t& event, size_t phase) {
    if (event.phaseCount < std::size(event.phases)) {
        event.phases[event.phaseCount++] = static_cast<uint8_t>(phase);
    }
}

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
    v2xspatconv_stateEvent_t event = MakeEvent(check, source, false);
    for (size_t phase = 0; phase < activity.phases.size(); phase++) {
        if (activity.phases[phase]) {
            AddPhase(event, phase);
        }
    }
    char phases[128] = "";
    if (g_checks[check].subject != nullptr) {
        ListPhases(activity, g_checks[check].subject, phases);
    }
    v2xspatconv_GateLogEvent(event, V2XLOG_INFO, "check %s: %s: not seen for a minute, %" PRIu64 " times before%s",
                             g_checks[check].counter.Name(), V2XSPATCONV_SOURCE_NAMES[source], activity.count, phases);
    activity = {};
    g_rows[check][source].isActive = false;
}

// Logs the first sight of an activity, or of a notice for one phase. Returns false if the line is lost.
bool LogFirst(e_v2xspatconv_check check, e_v2xspatconv_source source, std::initializer_list<uint8_t> phases,
              const char* values) {
    constexpr const char* FORMAT = "check %s: %s: %s";
    const char* const name = g_checks[check].counter.Name();
    if (g_checks[check].isNotice) {
        return v2xspatconv_GateLog(V2XLOG_INFO, FORMAT, name, V2XSPATCONV_SOURCE_NAMES[source], values);
    }
    v2xspatconv_stateEvent_t event = MakeEvent(check, source, true);
    for (const uint8_t phase : phases) {
        AddPhase(event, phase);
    }
    return v2xspatconv_GateLogEvent(event, V2XLOG_WARN, FORMAT, name, V2XSPATCONV_SOURCE_NAMES[source], values);
}

void Count(v2xspatconv_checkRow_t& row, bool isNotice, uint64_t now, std::initializer_list<uint8_t> phases) {
    row.isActive = !isNotice;
    row.count++;
    row.lastSight = now;
    row.phaseCount = static_cast<uint8_t>(phases.size());
    std::ranges::copy(phases, row.phases);
}

} // namespace

void v2xspatconv_ActivityClear(void) {
    for (int32_t check = 0; check < V2XSPATCONV_CHECKS; check++) {
        std::ranges::fill(g_activities[check], Activity{});
        std::ranges::fill(g_rows[check], v2xspatconv_checkRow_t{});
    }
}

const v2xspatconv_checkRows_t& v2xspatconv_ChecksGetRows(void) {
    return g_rows;
}

void v2xspatconv_ActivitySee(e_v2xspatconv_check check, e_v2xspatconv_source source, uint64_t now,
                             std::initializer_list<uint8_t> phases, const char* format, ...) {
    const bool isNotice = g_checks[check].isNotice;
    Activity& activity = g_activities[check][source];
    const bool isNew = isNotice ? !activity.phases[*phases.begin()] : !g_rows[check][source].isActive;
    bool isLogged = true;
    if (isNew) {
        char text[160];
        va_list values;
        va_start(values, format);
        vsnprintf(text, sizeof text, format, values);
        va_end(values);
        isLogged = LogFirst(check, source, phases, text);
    }
    g_checks[check].counter.Add();
    Count(g_rows[check][source], isNotice, now, phases);
    activity.count++;
    for (const uint8_t phase : phases) {
        activity.phases.set(phase, isLogged); // a notice that is not logged is logged with the next record
    }
}

uint64_t v2xspatconv_ChecksTick(uint64_t now) {
    uint64_t next = UINT64_MAX;
    for (int32_t check = 0; check < V2XSPATCONV_CHECKS; check++) {
        for (int32_t source = 0; source < V2XSPATCONV_SOURCES; source++) {
            const v2xspatconv_checkRow_t& row = g_rows[check][source];
            const uint64_t end = row.lastSight + ACTIVE_FOR;
            if (row.isActive && now >= end) {
                End(check, source);
            } else if (row.isActive) {
                next = std::min(next, end);
            }
        }
    }
    return next;
}
