// Command-line options that several roles have.
#pragma once

#include <CLI/CLI.hpp>

#include <span>
#include <string>

#include "common/command_line.h"
#include "damage.h"
#include "port.h"
#include "session.h"
#include "summary.h"

namespace sim {

inline constexpr const char* LOOPBACK = "127.0.0.1";

// The functions below add options whose values must live until the command line is parsed. The value's content is the
// default.

// A number from min to max; `type` is its name in the help.
template <typename Value>
CLI::Option* AddNumberOption(CLI::App& app, const std::string& name, Value& value, double min, double max,
                             const std::string& type, const std::string& help) {
    return app.add_option(name, value, help)->check(tools::Number(min, max))->type_name(type)->capture_default_str();
}

// A UDP address. A `type` of "[IP:]PORT" makes the IP optional.
CLI::Option* AddEndpointOption(CLI::App& app, const std::string& name, Endpoint& endpoint, const std::string& type,
                               const std::string& help);

// --seconds, --count (of what is `counted`), --quiet, --summary and --json.
void AddRunOptions(CLI::App& app, RunOptions& run, const std::string& counted, const std::string& jsonHelp);

struct DamageTexts {
    const char* share; // "--damage"
    const char* shareHelp;
    const char* kinds; // "--damage-kinds"
    const char* kindsHelp;
};

// The share and the kinds of the damage, and --seed. All kinds with an option name can be chosen.
void AddDamageOptions(CLI::App& app, DamageOptions& damage, RunOptions& run, std::span<const KindName> kinds,
                      const DamageTexts& texts);

} // namespace sim
