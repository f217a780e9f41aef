// Command line of the stack application.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

#include "command_line.h"
#include "stack.h"

namespace sim {

// The options as they are typed. It stays where it is until the command line is parsed.
struct StackCommand {
    StackOptions options;
    std::string listen;
    bool noReplies = false;
    std::string framesFile;
    DamageCommand bad;
};

CLI::App* AddStack(CLI::App& app, StackCommand& command);

// What was typed. Throws std::exception with what is wrong.
StackOptions OptionsOf(const StackCommand& command);

} // namespace sim
