// Subcommand capture: writes the datagrams and DDS samples of the daemon to a pcap file.
#pragma once

#include <cstdint>
#include <string>

#include "client.h"
#include "common/capture_file.h"
#include "common/json.h"
#include "result.h"

namespace ctl {

struct CaptureOptions : OutputOptions {
    double seconds = 0; // length of the capture; 0: until SIGINT or SIGTERM
};

struct CaptureResult {
    uint64_t datagrams = 0;
    uint64_t samples = 0;
    uint64_t lost = 0;      // events that the daemon has discarded
    std::string daemonGone; // the reason if the connection has ended; empty otherwise
};

// Writes the packet of a `tap` event, as docs/interfaces.md describes, and counts the event. Ignores other lines.
// Throws std::exception for an invalid event.
void WriteEvent(const cJSON* event, tools::CaptureWriter& writer, CaptureResult& result);

// Captures for `seconds` (0: no limit), until SIGINT or SIGTERM, or until the connection ends. The client must have
// requested `tap`.
CaptureResult Capture(Client& client, tools::CaptureWriter& writer, double seconds);

// Prints the number of packets. Returns the exit status. Throws NoDaemon if the daemon ends the connection; the file
// then has the packets up to this time.
int RunCapture(const CaptureOptions& options);

} // namespace ctl
