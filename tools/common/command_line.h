// Code that the command lines of all tools use.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>
#include <string>

#include "common/endpoint.h"

namespace tools {

// Exit statuses; 0 means success.
inline constexpr int EXIT_FAILED = 1;
inline constexpr int EXIT_USAGE = 2;

// Returns a validator that accepts a number from min to max. CLI11's own range also accepts "nan".
CLI::Validator NumberInRange(double min, double max);

// Adds an option for an address. The IP is optional if `type` is "[IP:]PORT". Parsing writes to `endpoint`, which must
// exist until then.
CLI::Option* AddEndpointOption(CLI::App& app, const std::string& name, Endpoint& endpoint, const std::string& type,
                               const std::string& help);

// Adds --version to `app`, requires a subcommand, parses the command line and calls `run`. Returns the exit status for
// main(): the result of `run`, EXIT_FAILED if `run` throws, or EXIT_USAGE if the command line is invalid. Writes the
// reason of a failure to standard error, after the program's name.
int RunTool(CLI::App& app, const char* program, int argc, char** argv, const std::function<int()>& run);

} // namespace tools
