#include "command_line.h"

#include <algorithm>
#include <stdexcept>
#include <vector>

namespace sim {

void AddRunOptions(CLI::App& app, RunOptions& run, const std::string& counted, const std::string& jsonHelp) {
    AddNumberOption(app, "--seconds", run.seconds, 0, 1e9, "S", "End after S seconds (0: run until Ctrl-C)");
    AddNumberOption(app, "--count", run.count, 0, 1e12, "N", "End after N " + counted + " (0: no limit)");
    app.add_flag("--quiet", run.quiet, "Print only the summary");
    app.add_option("--summary", run.summaryFile, "Also write the summary as JSON to FILE")->type_name("FILE");
    app.add_flag("--json", run.json, jsonHelp);
}

CLI::Option* AddFaultOptions(CLI::App& app, FaultOptions& faults, FaultUser user) {
    std::vector<std::string> names;
    std::string help = "Inject a fault into the plan again and again:";
    for (const auto& [name, what] : ListFaults(user)) {
        names.push_back(name);
        help += "\n" + name + ": " + what;
    }
    CLI::Option* const fault =
        app.add_option("--fault", faults.kind, help)->check(CLI::IsMember(names).description(""))->type_name("KIND");
    AddNumberOption(app, "--fault-rate", faults.rate, 0.01, 60, "N",
                    "Faults per minute. The first begins after 60/N seconds. Each ends at\nleast 5 s before the next")
        ->needs(fault);
    return fault;
}

void AddReplayOptions(CLI::App& app, ReplayOptions& replay, const std::string& help) {
    app.add_option("--replay", replay.file, help)->type_name("FILE");
    AddNumberOption(app, "--speed", replay.speed, 0.01, 1000, "X", "Replay X times as fast as captured")
        ->needs("--replay");
    app.add_flag("--loop", replay.isLooped, "Repeat the replay")->needs("--replay");
}

void AddDamageOptions(CLI::App& app, DamageOptions& damage, RunOptions& run, std::span<const KindName> kinds,
                      const DamageTexts& texts) {
    std::vector<std::string> names;
    std::string all;
    for (size_t kind = 0; kind < kinds.size(); ++kind) {
        if (kinds[kind].option != nullptr) {
            damage.kinds.push_back(kind);
            names.emplace_back(kinds[kind].option);
            all += (all.empty() ? "" : ",") + names.back();
        }
    }
    const auto choose = [&damage, kinds](const std::vector<std::string>& chosen) {
        std::erase_if(damage.kinds,
                      [&](size_t kind) { return std::ranges::find(chosen, kinds[kind].option) == chosen.end(); });
    };
    AddNumberOption(app, texts.share, damage.share, 0, 1, "SHARE", texts.shareHelp);
    app.add_option_function<std::vector<std::string>>(texts.kinds, choose, texts.kindsHelp)
        ->delimiter(',')
        ->check(CLI::IsMember(names).description(""))
        ->type_name("KIND,...")
        ->default_str(all)
        ->needs(texts.share);
    app.add_option("--seed", run.seed, "Repeat the random choices of the run that printed this seed")
        ->check(tools::NumberInRange(0, UINT32_MAX))
        ->type_name("N");
}

} // namespace sim
