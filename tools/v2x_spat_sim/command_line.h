// Options that several subcommands have in common.
#pragma once

#include <CLI/CLI.hpp>

#include <cstdint>
#include <initializer_list>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "device.h"
#include "options.h"

namespace sim {

inline constexpr const char* LOOPBACK = "127.0.0.1";

// Refuses what is not a number from min to max; CLI11's own range lets "nan" pass.
CLI::Validator Number(double min, double max);

// Refuses what ParseEndpoint does not take.
CLI::Validator Address(const char* defaultIp);

// --seconds, --count (of what is `counted`), --quiet and --summary.
void AddRunOptions(CLI::App& app, RunOptions& run, const std::string& counted);

// Damage as it is typed. It stays where it is until the command line is parsed, as for all that follows.
struct DamageCommand {
    double share = 0;
    std::vector<std::string> kinds; // all that there are, until it is parsed
    uint32_t seed = 0;
    CLI::Option* shareOption = nullptr;
    CLI::Option* seedOption = nullptr;

    // Empty unless it was typed.
    std::optional<uint32_t> Seed() const;
};

// What the options of damage are called and say.
struct DamageTexts {
    const char* share; // "--damage"
    const char* shareHelp;
    const char* kinds; // "--damage-kinds"
    const char* kindsHelp;
};

// The share, the kinds and --seed.
void AddDamage(CLI::App& app, DamageCommand& damage, const DamageTexts& texts);

// A device's options as they are typed.
struct DeviceCommand {
    DeviceOptions options;
    std::string target;
    std::string listen;
    DamageCommand damage;
};

// --target and --listen; what the command holds is the default.
void AddAddresses(CLI::App& app, DeviceCommand& command, const char* targetHelp, const char* listenHelp);

// --rate, --start, --replay and --loop; a replay excludes the options of the plan's shape too.
void AddSource(CLI::App& app, DeviceCommand& command, const char* rateHelp, std::initializer_list<CLI::Option*> shape);

// --damage, --damage-kinds and --seed.
void AddDamage(CLI::App& app, DeviceCommand& command, const char* readings, const char* kindsHelp);

// Those of AddRunOptions, and --json.
void AddDeviceRun(CLI::App& app, DeviceCommand& command, const char* readings);

// What was typed. Throws std::exception with what is wrong.
DeviceOptions OptionsOf(const DeviceCommand& command);

template <typename Kind>
struct NamedKind {
    const char* name;
    Kind kind;
};

// The kinds of the table whose names are among `names`, in the table's order.
template <typename Kind>
std::vector<Kind> ChosenKinds(const std::vector<std::string>& names, std::span<const NamedKind<Kind>> table) {
    std::vector<Kind> chosen;
    for (const auto& [name, kind] : table) {
        if (std::ranges::find(names, name) != names.end()) {
            chosen.push_back(kind);
        }
    }
    return chosen;
}

} // namespace sim
