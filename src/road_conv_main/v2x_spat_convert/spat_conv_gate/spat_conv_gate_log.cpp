#include "spat_conv_gate_log.h"

#include <cstdarg>
#include <cstdio>

#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"SPAT"};
v2xspatconv_gateLines_t* g_lines = nullptr; // guarded by the gate's lock

} // namespace

void v2xspatconv_GateLogSelect(v2xspatconv_gateLines_t* lines) {
    g_lines = lines;
}

bool v2xspatconv_GateLog(int32_t level, const char* format, ...) {
    if (!v2xlog_Enabled(g_log, level)) {
        return true;
    }
    if (g_lines->count == V2XSPATCONV_GATE_LINES) {
        return false;
    }
    auto& line = g_lines->lines[g_lines->count++];
    line.level = level;
    va_list values;
    va_start(values, format);
    vsnprintf(line.text, sizeof line.text, format, values);
    va_end(values);
    return true;
}

void v2xspatconv_GateLogWrite(const v2xspatconv_gateLines_t& lines) {
    for (int32_t i = 0; i < lines.count; i++) {
        V2XLOG(g_log, lines.lines[i].level, "%s", lines.lines[i].text);
    }
}
