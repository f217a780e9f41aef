// The result of a subcommand that writes a file.
#pragma once

#include <string>

#include "common/json.h"
#include "options.h"

namespace ctl {

struct OutputOptions : DaemonOptions {
    std::string output; // path of the file; "-": standard output
};

// Returns {"file": PATH}, to which the caller adds the other members of the result.
tools::Json MakeResult(const OutputOptions& options);

// Prints "PATH: TEXT", or the object with --json. Uses standard error if the file is standard output.
void PrintResult(const OutputOptions& options, const cJSON* object, const std::string& text);

} // namespace ctl
