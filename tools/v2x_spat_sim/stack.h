// Plays the stack application: takes the daemon's frames, checks them and shows what they say, and answers its requests
// for SPAT.
#pragma once

#include <cstdint>
#include <optional>

#include "endpoint.h"
#include "options.h"
#include "stack_answer.h"

namespace sim {

struct StackOptions {
    RunOptions run; // the count limits records
    Endpoint listen;
    bool isAnswering = true;
    AnswerOptions answers;
    std::optional<uint32_t> seed; // of all that is left to chance; random when empty
};

// Runs until its limits, SIGINT or SIGTERM, and prints the summary. Throws std::exception with what went wrong.
void RunStack(const StackOptions& options);

} // namespace sim
