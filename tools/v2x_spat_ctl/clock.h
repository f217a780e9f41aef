// State of the unit's clock.
#pragma once

namespace ctl {

enum class ClockState { synchronised, notSynchronised, unknown };

// Asks the kernel with ntp_adjtime(2). Returns `unknown` if the call is not permitted.
ClockState ReadClockState();

// Returns "synchronised", "not synchronised" or "unknown".
const char* FormatClockState(ClockState state);

} // namespace ctl
