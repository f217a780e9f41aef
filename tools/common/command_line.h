// What the command lines of the tools share.
#pragma once

#include <CLI/CLI.hpp>

#include <functional>

namespace tools {

// Exit statuses; 0 means success.
inline constexpr int EXIT_FAILED = 1;
inline constexpr int EXIT_USAGE = 2;

// Rejects what is not a number from min to max. (CLI11's own range accepts "nan".)
CLI::Validator Number(double min, double max);

// The rest of main(): adds --version, requires a subcommand, parses the command line, then calls `run`. Returns the
// exit status: what `run` returns, EXIT_FAILED when it throws, EXIT_USAGE for a wrong command line. Each error is one
// message on standard error that begins with the program's name.
int RunTool(CLI::App& app, const char* program, int argc, char** argv, const std::function<int()>& run);

} // namespace tools
