#include "spat_conv_gate_log.h"

#include <cstdarg>
#include <cstdio>

#include "v2x/v2xjournal.h"
#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"

namespace {

v2xlog_tag_t g_log{"SPAT"};
v2xspatconv_gateLines_t* g_lines = nullptr; // guarded by the gate's lock

__attribute__((format(printf, 2, 0))) bool AddLine(int32_t level, const char* format, va_list values) {
    if (!v2xlog_Enabled(g_log, level)) {
        return true;
    }
    if (g_lines->count == V2XSPATCONV_GATE_LINES) {
        return false;
    }
    auto& line = g_lines->lines[g_lines->count++];
    line.level = level;
    vsnprintf(line.text, sizeof line.text, format, values);
    return true;
}

} // namespace

void v2xspatconv_GateLogSelect(v2xspatconv_gateLines_t* lines) {
    g_lines = lines;
}

bool v2xspatconv_GateLog(int32_t level, const char* format, ...) {
    va_list values;
    va_start(values, format);
    const bool isAdded = AddLine(level, format, values);
    va_end(values);
    return isAdded;
}

bool v2xspatconv_GateLogEvent(v2xspatconv_stateEvent_t& event, int32_t level, const char* format, ...) {
    va_list values;
    if (v2x_journal::Wants(v2x_journalKind::state)) {
        va_start(values, format);
        vsnprintf(event.text, sizeof event.text, format, values);
        va_end(values);
        event.time = v2xpub_CommGetCurrentTime64();
        v2x_journal::WriteRecord(v2x_journalKind::state, event);
    }
    va_start(values, format);
    const bool isAdded = AddLine(level, format, values);
    va_end(values);
    return isAdded;
}

void v2xspatconv_GateLogWrite(const v2xspatconv_gateLines_t& lines) {
    for (int32_t i = 0; i < lines.count; i++) {
        V2XLOG(g_log, lines.lines[i].level, "%s", lines.lines[i].text);
    }
}
