// Subcommand picture: draws the signal-timing diagram of the running daemon, or of a capture.
#pragma once

#include <string>

#include "options.h"
#include "timeline.h"

namespace ctl {

struct PictureOptions : DaemonOptions {
    std::string output;  // path of the SVG file; "-": standard output
    std::string capture; // path of a pcap file; empty: the running daemon
    double seconds = 0;  // length of the diagram; 0: 60 s of the running daemon, or the whole capture
};

// Adds the lights of a record or the mark of another event of `watch`. Throws std::runtime_error for an invalid event.
void AddEvent(const std::string& line, TimelineBuilder& builder);

// Writes the diagram, and prints its path and what it shows. Returns the exit status. Throws std::runtime_error if
// there is no record. Throws NoDaemon if the daemon cannot be reached; if the daemon ends the connection, after it has
// written the diagram up to this time.
int RunPicture(const PictureOptions& options);

} // namespace ctl
