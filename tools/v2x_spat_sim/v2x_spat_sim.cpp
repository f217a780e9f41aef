// Command line of the simulators.
#include <CLI/CLI.hpp>

#include <cstdio>
#include <exception>

#include "cloud_command.h"
#include "command_line.h"
#include "controller.h"
#include "learner.h"
#include "stack.h"
#include "stack_command.h"

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
    command.device.damage.kinds = {"start", "length", "count"};
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
    sim::AddDamage(
        *learner, command.device, "reports",
        "Kinds of damage to choose from: start (wrong start bytes),\nlength (wrong length field), count (phase "
        "count above the records\nheld, otherwise well framed)");
    command.device.damage.seedOption->needs(command.device.damage.shareOption);
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
            sim::ChosenKinds<sim::ReportKind>(command.device.damage.kinds, KINDS)};
}

struct ControllerCommand {
    sim::DeviceCommand device;
    unsigned links = sim::FrameShape{}.links;
    unsigned groups = sim::FrameShape{}.groups;
    sim::StreamOptions stream;
};

constexpr const char* CONTROLLER_DAMAGE =
    "Kinds of damage to choose from: crc (wrong CRC), length (bytes\nmissing or added, the CRC as before), delimiter "
    "(opening or\nclosing one missing, or one too many within), escape (DB before a\nbyte that does not belong there, "
    "or "
    "a C0 not escaped), type (other\ncontrol type or object id, the CRC right), count (more links or\ngroups than what "
    "follows holds, the CRC right)";

constexpr const char* CONTROLLER_FOOTER =
    "What must arrive, with at most 11 links and groups, and at most 20480 bytes in half a\nsecond:\n"
    "  good - cutGood <= records at the stack application <= good + wrongDelimiter\n"
    "The daemon refuses every damaged frame; only one that lacks a delimiter is whole where\nthat of a neighbour "
    "stands "
    "in for it. A wrong delimiter, or a C0 not escaped, can cost\nthe good frames behind it until the daemon starts "
    "anew, "
    "every half second: cutGood counts\nthe good frames that were sent within 0.9 s of one. With --split the daemon "
    "may "
    "start anew\nbetween the datagrams of a frame as well, which loses it and those behind it uncounted.\n"
    "A line of a replay is to hold one frame; any other counts as wrong delimiter.";

void AddStream(CLI::App& app, sim::StreamOptions& stream) {
    CLI::Option* const split =
        app.add_option("--split", stream.split, "Send each frame in N datagrams, 1 to 8, cut anywhere")
            ->check(sim::Number(1, sim::MAX_SPLIT))
            ->type_name("N")
            ->capture_default_str();
    app.add_option("--batch", stream.batch, "Send N frames in one datagram, 1 to 8, once the last is due")
        ->check(sim::Number(1, sim::MAX_BATCH))
        ->type_name("N")
        ->capture_default_str()
        ->excludes(split);
    app.add_option("--garbage", stream.garbage,
                   "Share of the frames before which 1 to 64 bytes other than C0\nstand, 0 to 1")
        ->check(sim::Number(0, 1))
        ->type_name("SHARE");
}

CLI::App* AddController(CLI::App& app, ControllerCommand& command) {
    CLI::App* const controller = app.add_subcommand(
        "controller", "Play the GA/T 1743 traffic-signal controller: light-status frames to the daemon");
    command.device.target = "127.0.0.1:9002";
    command.device.listen = "9001";
    command.device.damage.kinds = {"crc", "length", "delimiter", "escape", "type", "count"};
    sim::AddAddresses(*controller, command.device, "Where frames go: the daemon's SignalMachine1743.LocalPort",
                      "Where frames leave.");
    CLI::Option* const links =
        controller
            ->add_option("--links", command.links,
                         "Entry links of the crossing, 0 to 12: from north, east, south,\nwest, and so on")
            ->check(sim::Number(0, sim::MAX_LINKS))
            ->type_name("N")
            ->capture_default_str();
    CLI::Option* const groups =
        controller
            ->add_option("--groups", command.groups,
                         "Lamp groups of each link, 0 to 12: straight on, left, right, two\ncrossings, and so on")
            ->check(sim::Number(0, sim::MAX_GROUPS))
            ->type_name("N")
            ->capture_default_str();
    sim::AddSource(*controller, command.device, "Frames per second", {links, groups});
    sim::AddDamage(*controller, command.device, "frames", CONTROLLER_DAMAGE);
    AddStream(*controller, command.stream);
    sim::AddDeviceRun(*controller, command.device, "frames");
    controller->footer(CONTROLLER_FOOTER);
    return controller;
}

sim::ControllerOptions OptionsOf(const ControllerCommand& command) {
    constexpr sim::NamedKind<sim::FrameKind> KINDS[] = {
        {"crc", sim::FrameKind::wrongCrc},
        {"length", sim::FrameKind::wrongLength},
        {"delimiter", sim::FrameKind::wrongDelimiter},
        {"escape", sim::FrameKind::wrongEscape},
        {"type", sim::FrameKind::wrongType},
        {"count", sim::FrameKind::wrongCount},
    };
    return {sim::OptionsOf(command.device),
            {static_cast<uint8_t>(command.links), static_cast<uint8_t>(command.groups)},
            sim::ChosenKinds<sim::FrameKind>(command.device.damage.kinds, KINDS),
            command.stream};
}

int Main(int argc, char** argv) {
    CLI::App app("Plays the devices and the application around v2x_spat_convert, for work without them.");
    app.set_version_flag("--version", std::string(PROGRAM) + " " + V2X_VERSION);
    app.require_subcommand(1);
    app.failure_message([](const CLI::App*, const CLI::Error& error) {
        return std::string(PROGRAM) + ": " + error.what() + "\nRun with --help for more information.\n";
    });
    LearnerCommand learnerCommand;
    ControllerCommand controllerCommand;
    sim::StackCommand stackCommand;
    sim::CloudCommand cloudCommand;
    const CLI::App* const learner = AddLearner(app, learnerCommand);
    const CLI::App* const controller = AddController(app, controllerCommand);
    const CLI::App* const stack = AddStack(app, stackCommand);
    AddCloud(app, cloudCommand);
    app.footer("v2x_spat_sim SUBCOMMAND --help tells the options of a subcommand."); // here: subcommands inherit it
    try {
        app.parse(argc, argv);
    } catch (const CLI::ParseError& error) {
        return app.exit(error) == 0 ? 0 : EXIT_USAGE;
    }
    if (learner->parsed()) {
        sim::RunLearner(OptionsOf(learnerCommand));
    } else if (controller->parsed()) {
        sim::RunController(OptionsOf(controllerCommand));
    } else if (stack->parsed()) {
        sim::RunStack(OptionsOf(stackCommand));
    } else {
        sim::RunCloud(OptionsOf(cloudCommand));
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
