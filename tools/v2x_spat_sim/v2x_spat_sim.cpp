// Command line of the simulators.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

#include "command_line.h"
#include "learner.h"
#include "stack.h"

namespace {

constexpr const char* PROGRAM = "v2x_spat_sim";
constexpr int EXIT_RUN_FAILED = 1;
constexpr int EXIT_USAGE = 2;

struct LearnerCommand {
    sim::DeviceCommand device;
    unsigned phases = 8;
    unsigned firstPhase = 1;
};

CLI::App* AddLearner(CLI::App& app, LearnerCommand& command) {
    CLI::App* const learner = app.add_subcommand("learner", "Play the signal learner: phase reports to the daemon");
    command.device.target = "127.0.0.1:8002";
    command.device.listen = "8001";
    command.device.options.rate = 2;
    command.device.damageKinds = {"start", "length", "count"};
    sim::AddAddresses(*learner, command.device, "Where reports go: the daemon's LearnMachine.LocalPort",
                      "Where reports leave and heartbeats arrive: the daemon's\nLearnMachine.Port.");
    CLI::Option* const phases =
        learner
            ->add_option("--phases", command.phases,
                         "Phases in a report, 1 to 36: 4 straight on, 4 left turns,\nand the same again")
            ->check(sim::Number(1, sim::MAX_PLAN_PHASES))
            ->type_name("N")
            ->capture_default_str();
    CLI::Option* const first =
        learner->add_option("--first-phase", command.firstPhase, "Device number of the first phase")
            ->check(sim::Number(1, 256 - sim::MAX_PLAN_PHASES))
            ->type_name("N")
            ->capture_default_str();
    sim::AddSource(*learner, command.device, "Reports per second", {phases, first});
    CLI::Option* const damage = sim::AddDamage(
        *learner, command.device, "reports",
        "Kinds of damage to choose from: start (wrong start bytes),\nlength (wrong length field), count (phase "
        "count above the records\nheld, otherwise well framed)");
    command.device.seedOption->needs(damage);
    sim::AddDeviceRun(*learner, command.device, "reports");
    return learner;
}

sim::LearnerOptions OptionsOf(const LearnerCommand& command) {
    constexpr sim::NamedKind<sim::ReportKind> KINDS[] = {
        {"start", sim::ReportKind::wrongStart},
        {"length", sim::ReportKind::wrongLength},
        {"count", sim::ReportKind::highCount},
    };
    return {sim::OptionsOf(command.device),
            {static_cast<uint8_t>(command.firstPhase), static_cast<uint8_t>(command.phases)},
            sim::ChosenKinds<sim::ReportKind>(command.device.damageKinds, KINDS)};
}

struct StackCommand {
    sim::StackOptions options;
    std::string listen = "127.0.0.1:20010";
};

CLI::App* AddStack(CLI::App& app, StackCommand& command) {
    CLI::App* const stack =
        app.add_subcommand("stack", "Play the stack application: check the daemon's frames and show what they say");
    stack->add_option("--listen", command.listen, "Where frames arrive: ipc.app_rs_rcvport of v2x_ipc.cfg")
        ->check(sim::Address(sim::LOOPBACK))
        ->type_name("[IP:]PORT")
        ->capture_default_str();
    sim::AddRunOptions(*stack, command.options.run, "records");
    stack->add_flag(
        "--json", command.options.run.json,
        "Print each record, refusal and the summary as one JSON object\nper line; times of states in 0.1 s");
    return stack;
}

sim::StackOptions OptionsOf(const StackCommand& command) {
    sim::StackOptions options = command.options;
    options.listen = sim::ParseEndpoint(command.listen, sim::LOOPBACK);
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
