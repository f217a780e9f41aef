// Plays the stack application: takes the daemon's frames, checks them and shows what they say.
#pragma once

#include "endpoint.h"
#include "options.h"

namespace sim {

struct StackOptions {
    RunOptions run; // the count limits records
    Endpoint listen;
};

// Runs until its limits, SIGINT or SIGTERM, and prints the summary. Throws std::exception with what went wrong.
void RunStack(const StackOptions& options);

} // namespace sim
