// Checks a configuration text before libconfig 1.5 parses it.
#pragma once

#include <optional>
#include <string_view>

struct v2xcfg_fault {
    unsigned line; // from 1
    const char* reason;
};

// Finds the first place that libconfig would misread without an error. Rejected are
//   - NUL bytes: libconfig ignores the text behind them;
//   - comments and strings without an end: libconfig accepts them;
//   - integers beyond 32 bits, with and without the suffix L: libconfig truncates them;
//   - @include: libconfig opens other files and may end the process;
//   - strings where no value is expected: libconfig leaks them.
// Every other syntax error is left to libconfig.
std::optional<v2xcfg_fault> v2xcfg_Scan(std::string_view text);
