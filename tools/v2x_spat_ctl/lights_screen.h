// The full-screen view of the subcommand lights.
#pragma once

#include <string>

namespace ctl {

// Shows the view until the user presses q, Esc or ctrl-C, or until the terminal is closed. Restores the terminal.
// Throws NoDaemon if the first connection to the socket at `path` fails. Later failures appear on the screen, and the
// view connects again. Throws std::runtime_error if standard input or output is not a terminal, or if TERM is unknown.
void ShowLightsScreen(const std::string& path);

} // namespace ctl
