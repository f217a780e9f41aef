// Plays the traffic-signal controller: light-status frames to the daemon, nothing comes back.
#pragma once

#include <vector>

#include "device.h"
#include "frame_stream.h"
#include "light_frame.h"

namespace sim {

struct ControllerOptions {
    DeviceOptions device; // its readings are frames
    FrameShape shape;
    std::vector<FrameKind> damageKinds;
    StreamOptions stream;
};

// Runs until its limits, SIGINT or SIGTERM, and prints the summary. Throws std::exception with what went wrong.
void RunController(const ControllerOptions& options);

} // namespace sim
