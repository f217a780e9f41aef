// Ends a subcommand that runs until SIGINT or SIGTERM.
#pragma once

namespace ctl {

// Catches SIGINT and SIGTERM from now on. They interrupt a waiting Client::ReadLine.
void CatchSignals();

// Returns true after SIGINT or SIGTERM.
bool WasSignalled();

} // namespace ctl
