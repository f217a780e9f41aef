// Writes lines to standard output without blocking.
#pragma once

#include <cstdint>

// Writes "text\n", truncated to 64 bytes. Drops the line if the pipe is full, so that a stop never waits for a reader.
// Async-signal-safe, any thread.
void v2xspatconv_PutLine(const char* text);

// Writes "text (number)\n" like v2xspatconv_PutLine. `number` is 0 or more.
void v2xspatconv_PutLineWithNumber(const char* text, int32_t number);
