#include "clock.h"

#include <sys/timex.h>

namespace ctl {

ClockState ReadClockState() {
    timex clock{}; // modes 0: changes nothing
    const int state = ntp_adjtime(&clock);
    if (state < 0) {
        return ClockState::unknown;
    }
    return state == TIME_ERROR ? ClockState::notSynchronised : ClockState::synchronised;
}

const char* FormatClockState(ClockState state) {
    static constexpr const char* TEXTS[] = {"synchronised", "not synchronised", "unknown"};
    return TEXTS[static_cast<int>(state)];
}

} // namespace ctl
