// Ends a subcommand that runs until SIGINT or SIGTERM.
#pragma once

#include <functional>
#include <string>

#include "client.h"

namespace ctl {

// Catches SIGINT and SIGTERM from now on. They interrupt a waiting Client::ReadLine.
void CatchSignals();

// Returns true after SIGINT or SIGTERM.
bool WasSignalled();

// Passes each line of the daemon to `visit` for `seconds` (0: no limit), until SIGINT or SIGTERM, or until the
// connection ends. Returns why the connection has ended, or an empty text.
std::string FollowLines(Client& client, double seconds, const std::function<void(const std::string& line)>& visit);

} // namespace ctl
