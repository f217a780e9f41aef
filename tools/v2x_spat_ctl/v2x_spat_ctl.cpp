// Program for operators: shows the running daemon and checks its configuration.
#include <CLI/CLI.hpp>

#include <concepts>
#include <csignal>
#include <cstdio>
#include <functional>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "bugreport.h"
#include "capture.h"
#include "client.h"
#include "commands.h"
#include "common/command_line.h"
#include "common/files.h"
#include "metrics.h"
#include "options.h"
#include "picture.h"
#include "serve.h"

namespace {

constexpr const char* PROGRAM = "v2x_spat_ctl";
constexpr int EXIT_NO_DAEMON = 2;

constexpr const char* DAEMON_EXIT =
    "Exit status: 0 on success; 1 on a failure; 2 if the daemon cannot be reached, or if\n"
    "the command line is wrong.";

class CommandLine {
public:
    explicit CommandLine(CLI::App& app) : m_app(app) {}

    // Adds a subcommand with the shared options that `Options` contains. `footer` gives examples and exit statuses.
    // Returns the subcommand and its options, to which the caller adds the subcommand's own ones.
    template <std::derived_from<ctl::ConfigOptions> Options>
    std::pair<CLI::App*, Options*> Add(const char* name, const char* help, const std::string& footer,
                                       int (*run)(const Options&)) {
        const auto options = std::make_shared<Options>();
        CLI::App* const command = m_app.add_subcommand(name, help)->footer(footer);
        if constexpr (std::derived_from<Options, ctl::DaemonOptions>) {
            command
                ->add_option("-s,--socket", options->socket,
                             "Control socket; default: Control.Path of the configuration")
                ->type_name("PATH");
        }
        command->add_option("-w,--workdir", options->workDir, "Work directory of the daemon, which contains conf/")
            ->type_name("DIR")
            ->capture_default_str();
        command->add_flag("--json", options->isJson, "Print JSON objects, one a line");
        m_commands.push_back({command, [run, options] { return run(*options); }});
        return {command, options.get()};
    }

    // Runs the subcommand of the command line. Returns the exit status.
    int Run() const {
        std::signal(SIGPIPE, SIG_IGN); // a closed pipe then makes the write fail
        try {
            for (const Command& command : m_commands) {
                if (command.parser->parsed()) {
                    return command.run();
                }
            }
        } catch (const ctl::NoDaemon& error) {
            std::fprintf(stderr, "%s: %s\n", PROGRAM, error.what());
            return EXIT_NO_DAEMON;
        } catch (const tools::ClosedPipe&) {
            return 0; // the reader has what it needs: v2x_spat_ctl watch | head
        }
        return tools::EXIT_USAGE;
    }

private:
    struct Command {
        const CLI::App* parser;
        std::function<int()> run;
    };

    CLI::App& m_app;
    std::vector<Command> m_commands;
};

void AddStatus(CommandLine& commands) {
    const auto [status, options] =
        commands.Add("status", "Print identity, sources, stack application, cloud, clock and checks",
                     "The star marks the sources whose records are forwarded. Times are local.\n"
                     "Example: v2x_spat_ctl status --brief\n"
                     "Exit status: 0 if each required source is fresh, the stack application answers and no\n"
                     "check is active; 1 otherwise; 2 if the daemon cannot be reached, or if the command line\n"
                     "is wrong.",
                     ctl::RunStatus);
    status->add_flag("--brief", options->isBrief, "Print one line for a monitoring system")
        ->excludes(status->get_option("--json"));
}

void AddLights(CommandLine& commands) {
    const auto [lights, options] = commands.Add(
        "lights", "Print the light of each phase and the seconds until it changes",
        std::string("The full-screen view shows STALE for each light that is too old. Keys: q, Esc and Ctrl-C\n"
                    "end the view; arrows and page keys scroll. Without colours a bar consists of '#'.\n"
                    "The environment variable NO_COLOR switches colours off.\n"
                    "Example: v2x_spat_ctl lights --watch\n") +
            DAEMON_EXIT,
        ctl::RunLights);
    lights->add_flag("--watch", options->isWatch, "Show a full-screen view that counts down")
        ->excludes(lights->get_option("--json"));
}

// Adds the subcommands that only have the shared options.
void AddPlainCommands(CommandLine& commands) {
    constexpr struct {
        const char* name;
        const char* help;
        const char* footer;
        int (*run)(const ctl::DaemonOptions&);
    } ROWS[] = {
        {"counters", "Print how many messages took each path", "Example: v2x_spat_ctl counters | grep -v ' 0$'\n",
         ctl::RunCounters},
        {"config", "Print the settings in force, with a mark at each default",
         "Example: v2x_spat_ctl config | grep OnlyFrom\n", ctl::RunConfig},
        {"levels", "Print the log level of each tag", "v2x_logtool sets levels.\nExample: v2x_spat_ctl levels\n",
         ctl::RunLevels},
        {"metrics", "Print the metrics in the text format of Prometheus",
         "Without a daemon prints v2x_spat_up 0. --json prints the replies to status and counters.\n"
         "Example: v2x_spat_ctl metrics > /var/lib/prometheus/node-exporter/v2x_spat.prom\n",
         ctl::RunMetrics},
        {"watch", "Print each record, change of state and check until Ctrl-C, one line an event",
         "A record line has the source, then phase, light and seconds left of each phase. A line\n"
         "\"lost 12 events\" means that the daemon has discarded events, because the terminal or\n"
         "pipe was too slow.\n"
         "Example: v2x_spat_ctl watch | grep -v record\n",
         ctl::RunWatch},
    };
    for (const auto& row : ROWS) {
        commands.Add(row.name, row.help, std::string(row.footer) + DAEMON_EXIT, row.run);
    }
}

void AddSeconds(CLI::App& command, double& seconds, const char* help) {
    command.add_option("--seconds", seconds, help)
        ->check(tools::NumberInRange(0, 1e6))
        ->type_name("S")
        ->capture_default_str();
}

void AddCheck(CommandLine& commands) {
    commands.Add("check",
                 "Print the problems of a configuration, then the phase mapping, the identity and\n"
                 "the ports in force",
                 "Each problem is one line, file:line: key: what. Notes are not problems.\n"
                 "Example: v2x_spat_ctl check -w /opt/v2x_service\n"
                 "Exit status: 0 without a problem, 1 with problems, 2 if the command line is wrong.",
                 ctl::RunCheck);
}

void AddServe(CommandLine& commands) {
    const auto [command, options] =
        commands.Add("serve", "Serve a web page with the lights, the metrics and the state over HTTP",
                     "Paths: / the page; /metrics for Prometheus; /api/status state and lights;\n"
                     "/api/events server-sent events. There is no password: use a tunnel or a proxy.\n"
                     "--json prints one object when the server listens: {\"serving\": \"http://IP:PORT/\"}\n"
                     "Example: v2x_spat_ctl serve --listen 192.168.1.5:8080 --host rsu1.example.org\n"
                     "SIGINT and SIGTERM end the server. Exit status: 0 after a signal; 1 if the address\n"
                     "cannot be used; 2 if no control socket is named, or if the command line is wrong.",
                     ctl::RunServe);
    tools::AddEndpointOption(*command, "--listen", options->listen, "IP:PORT", "Address and port of the server");
    command
        ->add_option("--host", options->hosts,
                     "Further name of this server in requests. localhost, loop-back addresses\n"
                     "and the address of --listen are always allowed")
        ->type_name("NAME");
}

void AddCapture(CommandLine& commands) {
    const auto [command, options] =
        commands.Add("capture", "Write the datagrams and DDS samples of the daemon to a pcap file",
                     "The file is for Wireshark, tcpdump and v2x_spat_sim --replay. Examples:\n"
                     "  v2x_spat_ctl capture -o unit.pcap --seconds 60\n"
                     "  v2x_spat_ctl capture -o - | tshark -i -\n" +
                         std::string(DAEMON_EXIT),
                     ctl::RunCapture);
    command->add_option("-o,--output", options->output, "File to write; - is standard output")
        ->type_name("FILE")
        ->required();
    AddSeconds(*command, options->seconds, "End after S seconds (0: run until Ctrl-C)");
}

void AddPicture(CommandLine& commands) {
    const auto [command, options] = commands.Add(
        "picture", "Draw the signal-timing diagram as SVG, from the running daemon or from a capture",
        "With --from the conflicts are those of the configuration in --workdir, if it can be read.\nExamples:\n"
        "  v2x_spat_ctl picture -o cycle.svg --seconds 90\n"
        "  v2x_spat_ctl picture -o cycle.svg --from unit.pcap\n" +
            std::string(DAEMON_EXIT),
        ctl::RunPicture);
    command->add_option("-o,--output", options->output, "File to write; - is standard output")
        ->type_name("FILE")
        ->required();
    command->add_option("--from", options->capture, "Draw the records in a capture (pcap or pcapng)")
        ->type_name("FILE");
    AddSeconds(*command, options->seconds, "Length of the diagram (0: 60 s of the daemon, or the whole capture)");
}

void AddBugreport(CommandLine& commands) {
    const auto [command, options] = commands.Add(
        "bugreport", "Pack versions, state, configuration, log and a capture of 10 s for a developer",
        "The archive contains the device id and IP addresses. A part that is not available is named in\n"
        "its file missing.txt. Example:\n"
        "  v2x_spat_ctl bugreport -o unit.tar.gz\n"
        "Exit status: 0 on success, also without a daemon; 1 on a failure; 2 if the command line is wrong.",
        ctl::RunBugreport);
    command->add_option("-o,--output", options->output, "Archive to write (.tar.gz); - is standard output")
        ->type_name("FILE")
        ->required();
    command
        ->add_option("-l,--log", options->log,
                     "Log file of the daemon; default: the files in log/ of the work\ndirectory. The archive has the "
                     "last 2 MiB of each file")
        ->type_name("FILE");
}

} // namespace

int main(int argc, char** argv) {
    CLI::App app("Shows the running daemon v2x_spat_convert and checks its configuration.");
    CommandLine commands(app);
    AddStatus(commands);
    AddLights(commands);
    AddPlainCommands(commands);
    AddCheck(commands);
    AddServe(commands);
    AddCapture(commands);
    AddPicture(commands);
    AddBugreport(commands);
    // Subcommands copy the footer when they are added, so that app.footer comes last.
    app.footer("v2x_spat_ctl SUBCOMMAND --help lists the options of a subcommand.");
    return tools::RunTool(app, PROGRAM, argc, argv, [&] { return commands.Run(); });
}
