#include <CLI/CLI.hpp>

#include "common/command_line.h"
#include "roles.h"

int main(int argc, char** argv) {
    CLI::App app("Plays the devices and the application around v2x_spat_convert, for work without them.");
    sim::Run run;
    sim::AddLearner(app, run);
    sim::AddController(app, run);
    sim::AddStack(app, run);
    sim::AddCloud(app, run);
    app.footer("v2x_spat_sim SUBCOMMAND --help shows the options of a subcommand."); // set last: subcommands inherit it
    return tools::RunTool(app, "v2x_spat_sim", argc, argv, [&run] {
        run();
        return 0;
    });
}
