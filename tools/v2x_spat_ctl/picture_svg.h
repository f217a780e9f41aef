// Draws the signal-timing diagram.
#pragma once

#include <string>

#include "timeline.h"

namespace ctl {

// Returns the diagram as an SVG document: a row a phase, a time axis in local time, a legend, and the list of marks.
// Letters and patterns show the lights without colours, too.
std::string DrawTimeline(const Timeline& timeline);

} // namespace ctl
