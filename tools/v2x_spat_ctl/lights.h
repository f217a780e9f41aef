// The lights of the reply to the request lights.
#pragma once

#include <optional>
#include <string>

#include "common/json.h"

namespace ctl {

enum class Colour { none, red, yellow, green };

// How a light looks on a terminal.
struct LightLook {
    const char* name; // as in the daemon's lines
    char letter;      // for a terminal without colours
    Colour colour;
};

// Returns the look of a light by its name; an unknown name gives the look of "unknown".
const LightLook& FindLook(const std::string& name);

// Returns the seconds until the light changes, at least 0. `sinceReply` is the age of the reply in seconds. Returns an
// empty optional if the time is unknown.
std::optional<double> CountDown(const cJSON* light, double sinceReply);

// Returns false if the environment variable NO_COLOR has a value.
bool AllowsColours();

// Returns the table of the subcommand lights.
std::string FormatLights(const cJSON* reply, bool hasColours);

} // namespace ctl
