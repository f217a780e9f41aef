// Checks a configuration text before libconfig 1.5 parses it.
#pragma once

#include <optional>
#include <string_view>

struct v2xcfg_fault {
    unsigned line; // 1-based line number
    const char* reason;
};

// Returns the first construct that libconfig accepts but handles wrongly, or nullopt if there is none. Rejects:
//   - NUL bytes: libconfig ignores the text after them;
//   - unterminated comments and strings: libconfig accepts them;
//   - integers that need more than 32 bits, with and without the suffix L: libconfig truncates them;
//   - @include: libconfig opens other files and may end the process;
//   - strings where no value is expected: libconfig leaks their memory.
// libconfig reports all other syntax errors.
std::optional<v2xcfg_fault> v2xcfg_Scan(std::string_view text);
