// Command-line options of several roles.
#pragma once

#include <CLI/CLI.hpp>

#include <span>
#include <string>

#include "common/command_line.h"
#include "damage.h"
#include "fault.h"
#include "port.h"
#include "replay.h"
#include "session.h"
#include "summary.h"

namespace sim {

inline constexpr const char* LOOPBACK = "127.0.0.1";

// Each function below adds options. Parsing writes the values to the reference arguments, which must exist until the
// command line is parsed. The initial values are the defaults.

// Adds an option for a number from min to max. The help shows `type` as the value's name.
template <typename Value>
CLI::Option* AddNumberOption(CLI::App& app, const std::string& name, Value& value, double min, double max,
                             const std::string& type, const std::string& help) {
    return app.add_option(name, value, help)
        ->check(tools::NumberInRange(min, max))
        ->type_name(type)
        ->capture_default_str();
}

using tools::AddEndpointOption;

// Adds --seconds, --count, --quiet, --summary and --json. `counted` names what --count limits, in the plural.
void AddRunOptions(CLI::App& app, RunOptions& run, const std::string& counted, const std::string& jsonHelp);

// Adds --fault, which is returned, and --fault-rate.
CLI::Option* AddFaultOptions(CLI::App& app, FaultOptions& faults, FaultUser user);

// Adds --replay with the help text `help`, --speed and --loop.
void AddReplayOptions(CLI::App& app, ReplayOptions& replay, const std::string& help);

struct DamageTexts {
    const char* share; // "--damage"
    const char* shareHelp;
    const char* kinds; // "--damage-kinds"
    const char* kindsHelp;
};

// Adds the options for the share and the kinds of damage, and --seed. A user can choose all kinds with an option name.
void AddDamageOptions(CLI::App& app, DamageOptions& damage, RunOptions& run, std::span<const KindName> kinds,
                      const DamageTexts& texts);

} // namespace sim
