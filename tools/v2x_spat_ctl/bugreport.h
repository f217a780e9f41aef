// Subcommand bugreport: packs what a developer needs to understand a problem of the unit.
#pragma once

#include <string>

#include "result.h"

namespace ctl {

struct BugreportOptions : OutputOptions { // the output is a .tar.gz archive
    std::string log; // path of the log file; empty: the files of the folder log/ in the work directory
};

// Packs versions, the daemon's replies, configuration, the result of `check`, the ends of the log files and a capture
// of ten seconds. The file missing.txt in the archive names the parts that are not available. Works without a daemon.
// SIGINT ends the capture early. Prints what the archive contains. Returns the exit status.
int RunBugreport(const BugreportOptions& options);

} // namespace ctl
