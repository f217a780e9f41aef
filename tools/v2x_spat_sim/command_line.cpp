#include "command_line.h"

#include <charconv>
#include <stdexcept>

#include "endpoint.h"
#include "text.h"

namespace sim {
namespace {

constexpr const char* ANY_ADDRESS = "0.0.0.0";

} // namespace

CLI::Validator Number(double min, double max) {
    const auto check = [min, max](const std::string& given) {
        double value = 0;
        const auto [stop, error] = std::from_chars(given.data(), given.data() + given.size(), value);
        const bool isNumber = error == std::errc{} && stop == given.data() + given.size();
        const bool isFit = isNumber && value >= min && value <= max;
        return isFit ? "" : FormatText("'%s' is not a number from %.15g to %.15g", given.c_str(), min, max);
    };
    return {check, ""};
}

CLI::Validator Address(const char* defaultIp) {
    const auto check = [defaultIp](const std::string& given) -> std::string {
        try {
            ParseEndpoint(given, defaultIp);
            return "";
        } catch (const std::invalid_argument& reason) {
            return reason.what();
        }
    };
    return {check, ""};
}

void AddRunOptions(CLI::App& app, RunOptions& run, const std::string& counted) {
    app.add_option("--seconds", run.limits.seconds, "End after S seconds (0: at Ctrl-C)")
        ->check(Number(0, 1e9))
        ->type_name("S");
    app.add_option("--count", run.limits.count, "End after N " + counted + " (0: no such limit)")
        ->check(Number(0, 1e12))
        ->type_name("N");
    app.add_flag("--quiet", run.quiet, "Print the summary only");
    app.add_option("--summary", run.summaryFile, "Write the summary as JSON to FILE too")->type_name("FILE");
}

void AddAddresses(CLI::App& app, DeviceCommand& command, const char* targetHelp, const char* listenHelp) {
    app.add_option("--target", command.target, targetHelp)
        ->check(Address(nullptr))
        ->type_name("IP:PORT")
        ->capture_default_str();
    app.add_option("--listen", command.listen,
                   std::string(listenHelp) +
                       "\nWithout IP: 127.0.0.1 for a target on this machine, else all\naddresses")
        ->check(Address(LOOPBACK))
        ->type_name("[IP:]PORT")
        ->capture_default_str();
}

void AddSource(CLI::App& app, DeviceCommand& command, const char* rateHelp, std::initializer_list<CLI::Option*> shape) {
    CLI::Option* const rate = app.add_option("--rate", command.options.rate, rateHelp)
                                  ->check(Number(0.001, 1e6))
                                  ->type_name("HZ")
                                  ->capture_default_str();
    CLI::Option* const start = app.add_option("--start", command.options.start, "Begin S seconds into the plan")
                                   ->check(Number(0, 1e6))
                                   ->type_name("S");
    CLI::Option* const replay = app.add_option("--replay", command.options.replayFile,
                                               "Send the datagrams in FILE instead of the plan; each "
                                               "line:\nmilliseconds since the start, bytes in hex; "
                                               "'#' begins a comment")
                                    ->type_name("FILE")
                                    ->excludes(rate, start);
    for (CLI::Option* const option : shape) {
        replay->excludes(option);
    }
    app.add_flag("--loop", command.options.replayLoop, "Start the replay again when it is over")->needs(replay);
}

std::optional<uint32_t> DamageCommand::Seed() const {
    return seedOption->count() != 0 ? std::optional(seed) : std::nullopt;
}

void AddDamage(CLI::App& app, DamageCommand& damage, const DamageTexts& texts) {
    damage.shareOption =
        app.add_option(texts.share, damage.share, texts.shareHelp)->check(Number(0, 1))->type_name("SHARE");
    app.add_option(texts.kinds, damage.kinds, texts.kindsHelp)
        ->delimiter(',')
        ->check(CLI::IsMember(damage.kinds).description(""))
        ->type_name("KIND,...")
        ->capture_default_str()
        ->needs(damage.shareOption);
    damage.seedOption =
        app.add_option("--seed", damage.seed, "Repeat what chance did in the run that printed this seed")
            ->check(Number(0, UINT32_MAX))
            ->type_name("N");
}

void AddDamage(CLI::App& app, DeviceCommand& command, const char* readings, const char* kindsHelp) {
    const std::string shareHelp = FormatText("Share of the %s that is damaged, 0 to 1", readings);
    AddDamage(app, command.damage, {"--damage", shareHelp.c_str(), "--damage-kinds", kindsHelp});
}

void AddDeviceRun(CLI::App& app, DeviceCommand& command, const char* readings) {
    AddRunOptions(app, command.options.run, readings);
    app.add_flag("--json", command.options.run.json,
                 "Print the summary as JSON, and what is for people on standard\nerror");
}

DeviceOptions OptionsOf(const DeviceCommand& command) {
    DeviceOptions options = command.options;
    options.target = ParseEndpoint(command.target, nullptr);
    options.listen = ParseEndpoint(command.listen, IsLoopback(options.target.ip) ? LOOPBACK : ANY_ADDRESS);
    options.damage = command.damage.share;
    options.seed = command.damage.Seed();
    return options;
}

} // namespace sim
