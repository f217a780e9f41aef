// Command line of the simulators.
#include <CLI/CLI.hpp>

#include <charconv>
#include <cstdio>
#include <exception>

#include "learner.h"
#include "stack.h"
#include "text.h"

namespace {

constexpr const char* PROGRAM = "v2x_spat_sim";
constexpr int EXIT_RUN_FAILED = 1;
constexpr int EXIT_USAGE = 2;

constexpr const char* LOOPBACK = "127.0.0.1";
constexpr const char* ANY_ADDRESS = "0.0.0.0";

// Refuses what is not a number from min to max; CLI11's own range lets "nan" pass.
CLI::Validator Number(double min, double max) {
    const auto check = [min, max](const std::string& given) {
        double value = 0;
        const auto [stop, error] = std::from_chars(given.data(), given.data() + given.size(), value);
        const bool isNumber = error == std::errc{} && stop == given.data() + given.size();
        const bool isFit = isNumber && value >= min && value <= max;
        return isFit ? "" : sim::FormatText("'%s' is not a number from %.15g to %.15g", given.c_str(), min, max);
    };
    return {check, ""};
}

// Refuses what ParseEndpoint does not take.
CLI::Validator Address(const char* defaultIp) {
    const auto check = [defaultIp](const std::string& given) -> std::string {
        try {
            sim::ParseEndpoint(given, defaultIp);
            return "";
        } catch (const std::invalid_argument& reason) {
            return reason.what();
        }
    };
    return {check, ""};
}

void AddRunOptions(CLI::App& app, sim::RunOptions& run, const std::string& counted) {
    app.add_option("--seconds", run.limits.seconds, "End after S seconds (0: at Ctrl-C)")
        ->check(Number(0, 1e9))
        ->type_name("S");
    app.add_option("--count", run.limits.count, "End after N " + counted + " (0: no such limit)")
        ->check(Number(0, 1e12))
        ->type_name("N");
    app.add_flag("--quiet", run.quiet, "Print the summary only");
    app.add_option("--summary", run.summaryFile, "Write the summary as JSON to FILE too")->type_name("FILE");
}

struct LearnerCommand {
    sim::LearnerOptions options;
    std::string target = "127.0.0.1:8002";
    std::string listen = "8001";
    unsigned phases = 8;
    unsigned firstPhase = 1;
    std::vector<std::string> damageKinds = {"start", "length", "count"};
    uint32_t seed = 0;
    CLI::Option* seedOption = nullptr;
};

void AddReports(CLI::App& app, LearnerCommand& command) {
    CLI::Option* const rate = app.add_option("--rate", command.options.rate, "Reports per second")
                                  ->check(Number(0.001, 1e6))
                                  ->type_name("HZ")
                                  ->capture_default_str();
    CLI::Option* const phases =
        app.add_option("--phases", command.phases,
                       "Phases in a report, 1 to 36: 4 straight on, 4 left turns,\nand the same again")
            ->check(Number(1, sim::MAX_PLAN_PHASES))
            ->type_name("N")
            ->capture_default_str();
    CLI::Option* const first = app.add_option("--first-phase", command.firstPhase, "Device number of the first phase")
                                   ->check(Number(1, 256 - sim::MAX_PLAN_PHASES))
                                   ->type_name("N")
                                   ->capture_default_str();
    CLI::Option* const start = app.add_option("--start", command.options.start, "Begin S seconds into the plan")
                                   ->check(Number(0, 1e6))
                                   ->type_name("S");
    CLI::Option* const replay = app.add_option("--replay", command.options.replayFile,
                                               "Send the datagrams in FILE instead of the plan; each "
                                               "line:\nmilliseconds since the start, bytes in hex; "
                                               "'#' begins a comment")
                                    ->type_name("FILE")
                                    ->excludes(rate, phases, first, start);
    app.add_flag("--loop", command.options.replayLoop, "Start the replay again when it is over")->needs(replay);
}

void AddDamage(CLI::App& app, LearnerCommand& command) {
    CLI::Option* const damage =
        app.add_option("--damage", command.options.damage, "Share of the datagrams that is damaged, 0 to 1")
            ->check(Number(0, 1))
            ->type_name("SHARE");
    app.add_option(
           "--damage-kinds", command.damageKinds,
           "Kinds of damage to choose from: start (wrong start bytes),\nlength (wrong length field), count (phase "
           "count above the records\nheld, otherwise well framed)")
        ->delimiter(',')
        ->check(CLI::IsMember(command.damageKinds).description(""))
        ->type_name("KIND,...")
        ->capture_default_str()
        ->needs(damage);
    command.seedOption = app.add_option("--seed", command.seed, "Repeat the damage of the run that printed this seed")
                             ->check(Number(0, UINT32_MAX))
                             ->type_name("N")
                             ->needs(damage);
}

CLI::App* AddLearner(CLI::App& app, LearnerCommand& command) {
    CLI::App* const learner = app.add_subcommand("learner", "Play the signal learner: phase reports to the daemon");
    learner->add_option("--target", command.target, "Where reports go: the daemon's LearnMachine.LocalPort")
        ->check(Address(nullptr))
        ->type_name("IP:PORT")
        ->capture_default_str();
    learner
        ->add_option(
            "--listen", command.listen,
            "Where reports leave and heartbeats arrive: the daemon's\nLearnMachine.Port. Without IP: 127.0.0.1 for a "
            "target on this\nmachine, else all addresses")
        ->check(Address(LOOPBACK))
        ->type_name("[IP:]PORT")
        ->capture_default_str();
    AddReports(*learner, command);
    AddDamage(*learner, command);
    AddRunOptions(*learner, command.options.run, "reports");
    learner->add_flag("--json", command.options.run.json,
                      "Print the summary as JSON, and what is for people on standard\nerror");
    return learner;
}

sim::LearnerOptions OptionsOf(const LearnerCommand& command) {
    sim::LearnerOptions options = command.options;
    options.target = sim::ParseEndpoint(command.target, nullptr);
    options.listen = sim::ParseEndpoint(command.listen, sim::IsLoopback(options.target.ip) ? LOOPBACK : ANY_ADDRESS);
    options.phases = {static_cast<uint8_t>(command.firstPhase), static_cast<uint8_t>(command.phases)};
    const std::pair<const char*, sim::ReportKind> kinds[] = {
        {"start", sim::ReportKind::wrongStart},
        {"length", sim::ReportKind::wrongLength},
        {"count", sim::ReportKind::highCount},
    };
    for (const auto& [name, kind] : kinds) {
        if (std::ranges::find(command.damageKinds, name) != command.damageKinds.end()) {
            options.damageKinds.push_back(kind);
        }
    }
    if (command.seedOption->count() != 0) {
        options.seed = command.seed;
    }
    return options;
}

struct StackCommand {
    sim::StackOptions options;
    std::string listen = "127.0.0.1:20010";
};

CLI::App* AddStack(CLI::App& app, StackCommand& command) {
    CLI::App* const stack =
        app.add_subcommand("stack", "Play the stack application: check the daemon's frames and show what they say");
    stack->add_option("--listen", command.listen, "Where frames arrive: ipc.app_rs_rcvport of v2x_ipc.cfg")
        ->check(Address(LOOPBACK))
        ->type_name("[IP:]PORT")
        ->capture_default_str();
    AddRunOptions(*stack, command.options.run, "records");
    stack->add_flag(
        "--json", command.options.run.json,
        "Print each record, refusal and the summary as one JSON object\nper line; times of states in 0.1 s");
    return stack;
}

sim::StackOptions OptionsOf(const StackCommand& command) {
    sim::StackOptions options = command.options;
    options.listen = sim::ParseEndpoint(command.listen, LOOPBACK);
    return options;
}

int Main(int argc, char** argv) {
    CLI::App app("Plays the devices and the application around v2x_spat_convert, for work without them.");
    app.set_version_flag("--version", std::string(PROGRAM) + " " + V2X_VERSION);
    app.require_subcommand(1);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string(PROGRAM) + ": " + error.what() + "\nRun with --help for more information.\n";
    });
    LearnerCommand learnerCommand;
    StackCommand stackCommand;
    const CLI::App* const learner = AddLearner(app, learnerCommand);
    AddStack(app, stackCommand);
    app.footer("v2x_spat_sim SUBCOMMAND --help tells the options of a subcommand."); // here: subcommands inherit it
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    if (learner->parsed()) {
        sim::RunLearner(OptionsOf(learnerCommand));
    } else {
        sim::RunStack(OptionsOf(stackCommand));
    }
    return 0;
}

} // namespace

int main(int argc, char** argv) {
    try {
        return Main(argc, argv);
    } catch (const std::exception& error) {
        std::fprintf(stderr, "%s: %s\n", PROGRAM, error.what());
        return EXIT_RUN_FAILED;
    }
}
