// Program that checks the configuration of the daemon.
#include <CLI/CLI.hpp>

#include "check.h"
#include "common/command_line.h"
#include "common/files.h"

int main(int argc, char** argv) {
    std::string workDir = "/opt/v2x_service";
    CLI::App app("Checks the configuration of v2x_spat_convert.");
    CLI::App* const check = app.add_subcommand(
        "check", "Print the problems of a configuration, then the phase mapping, the identity and\nthe ports in force");
    check->add_option("-w,--workdir", workDir, "Work directory of the daemon, which contains conf/")
        ->type_name("DIR")
        ->capture_default_str();
    check->footer("Each problem is one line, file:line: key: what. Notes are not problems.\n"
                  "Exit status: 0 without a problem, 1 with problems, 2 if the command line is wrong.");
    return tools::RunTool(app, "v2x_spat_ctl", argc, argv, [&] {
        const ctl::CheckResult result = ctl::CheckConfiguration(workDir);
        tools::WriteFile("-", result.text);
        return result.isValid ? 0 : tools::EXIT_FAILED;
    });
}
