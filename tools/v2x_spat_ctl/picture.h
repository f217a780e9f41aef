// Subcommand picture: draws the signal-timing diagram of the running daemon, or of a capture.
#pragma once

#include <string>

#include "common/json.h"
#include "result.h"
#include "timeline.h"

namespace ctl {

struct PictureOptions : OutputOptions {
    std::string capture; // path of a pcap file; empty: the running daemon
    double seconds = 0;  // length of the diagram; 0: 60 s of the running daemon, or the whole capture
};

// Adds the lights of a record or of the reply `lights`, or the mark of another event of `watch`. The reply `status`
// says when the lights of a source are old; null: by default. Throws std::runtime_error for an invalid time.
void AddLine(const cJSON* line, const cJSON* status, TimelineBuilder& builder);

// Writes the diagram, and prints its path and what it shows. Returns the exit status. Throws std::runtime_error if
// there is no record. Throws NoDaemon if the daemon cannot be reached; if the daemon ends the connection, after it has
// written the diagram up to this time.
int RunPicture(const PictureOptions& options);

} // namespace ctl
