#include <CLI/CLI.hpp>

#include "common/command_line.h"
#include "roles.h"

int main(int argc, char** argv) {
    CLI::App app("Simulates the devices, the stack application and the cloud that v2x_spat_convert communicates with.");
    sim::Run run;
    sim::AddLearner(app, run);
    sim::AddController(app, run);
    sim::AddStack(app, run);
    sim::AddCloud(app, run);
    // Subcommands copy the footer when they are added, so that app.footer comes last.
    app.footer("v2x_spat_sim SUBCOMMAND --help lists the options of a subcommand.");
    return tools::RunTool(app, "v2x_spat_sim", argc, argv, [&run] {
        run();
        return 0;
    });
}
