// Command line of the cloud.
#pragma once

#include <CLI/CLI.hpp>

#include <string>
#include <vector>

#include "cloud.h"
#include "command_line.h"

namespace sim {

// The options as they are typed. It stays where it is until the command line is parsed.
struct CloudCommand {
    CloudOptions options;
    std::string status = "1";
    std::vector<std::string> documentFiles;
    unsigned phases = PhaseRange{}.count;
    std::string fragment = "whole";
    DamageCommand bad;
};

CLI::App* AddCloud(CLI::App& app, CloudCommand& command);

// What was typed. Throws std::exception with what is wrong.
CloudOptions OptionsOf(const CloudCommand& command);

} // namespace sim
