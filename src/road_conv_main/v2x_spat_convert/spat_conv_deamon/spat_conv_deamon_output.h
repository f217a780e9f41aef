// Lines on standard output that wait for nobody and may come from a signal handler.
#pragma once

#include <cstdint>

// Writes "text\n" at once. A full pipe drops the line: nobody may be reading, and a stop must not wait for it.
// Async-signal-safe.
void v2xspatconv_PutLine(const char* text);

// Writes "text (number)\n" in the same way. `number` is 0 or more.
void v2xspatconv_PutLineWithNumber(const char* text, int32_t number);
