// Plays the cloud and the unit's communication software: takes the documents and status records that the daemon
// publishes, and publishes documents and the cloud's status for it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "cloud_downs.h"
#include "options.h"

namespace sim {

struct CloudOptions {
    RunOptions run; // the count limits documents: those sent, or without any to send those received
    int32_t domain = 200;
    std::string device = "RSU0001"; // identity of the unit, part of the topics' names
    std::vector<uint8_t> runStates; // the cloud's run status, in turn; empty: none is published
    double statusInterval = 5;      // seconds
    bool isSending = true;          // documents
    DownOptions downs;
    std::optional<uint32_t> seed; // of all that is left to chance; random when empty
};

// Runs until its limits, SIGINT or SIGTERM, and prints the summary. Throws std::exception with what went wrong.
void RunCloud(const CloudOptions& options);

} // namespace sim
