// Log lines of the gate. The gate makes lines while it holds its lock and writes them after it has released the lock,
// so that a slow disk delays no record. Private to the gate.
#pragma once

#include <cstdint>

#include "spat_conv_gate.h"

inline constexpr int32_t V2XSPATCONV_GATE_LINES = 24;

// The lines of one call of the gate.
struct v2xspatconv_gateLines_t {
    int32_t count = 0;
    struct {
        int32_t level; // V2XLOG_...
        char text[224];
    } lines[V2XSPATCONV_GATE_LINES];
};

// Selects the buffer of the next lines. The caller holds the gate's lock.
void v2xspatconv_GateLogSelect(v2xspatconv_gateLines_t* lines);

// Adds a line under the tag "SPAT" to the selected buffer, if the level is enabled. Truncates the text to 223 bytes.
// Returns false if the buffer is full and the line is lost. The caller holds the gate's lock.
__attribute__((format(printf, 2, 3))) bool v2xspatconv_GateLog(int32_t level, const char* format, ...);

// Adds a line that reports a change of state. Writes the change to the journal with the line as its text, even if the
// level of the line is not enabled. Sets the time and the text of `event`. Returns false if the line is lost.
__attribute__((format(printf, 3, 4))) bool v2xspatconv_GateLogEvent(v2xspatconv_stateEvent_t& event, int32_t level,
                                                                    const char* format, ...);

// Writes the lines. The caller does not hold the gate's lock.
void v2xspatconv_GateLogWrite(const v2xspatconv_gateLines_t& lines);
