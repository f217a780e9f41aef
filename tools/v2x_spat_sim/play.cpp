#include "play.h"

#include <algorithm>
#include <optional>

namespace sim {

void Play(RunLoop& loop, DatagramSource& source, const Limits& limits, const Player& player) {
    using std::chrono::nanoseconds;
    using std::chrono::seconds;
    const Clock::time_point start = Clock::now();
    const Clock::time_point end = EndOfRun(start, limits.seconds);
    Clock::time_point nextTick = start;
    for (uint64_t played = 0; limits.count == 0 || played < limits.count;) {
        const std::optional<nanoseconds> sinceStart = source.Due(Clock::now() - start);
        if (!sinceStart) {
            return;
        }
        const Clock::time_point due = start + *sinceStart;
        if (!loop.WaitUntil(std::min({due, nextTick, end}))) {
            return;
        }
        const Clock::time_point now = Clock::now();
        if (now >= nextTick) {
            player.tick(now - start);
            nextTick += std::chrono::floor<seconds>(now - nextTick) + seconds(1);
        }
        if (due <= now && due < end) {
            player.send(source.Take());
            ++played;
        } else if (now >= end) {
            return;
        }
    }
}

} // namespace sim
