// Sends datagrams at the times at which they are due.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <vector>

#include "options.h"
#include "run_loop.h"
#include "source.h"

namespace sim {

struct Player {
    std::function<void(std::vector<uint8_t> datagram)> send;
    std::function<void(std::chrono::nanoseconds sinceStart)> tick; // every second, first at the start
};

// Goes on until the source has no more, a limit is reached or the loop ends the run. What is due before the limit in
// time is sent, also when it is late.
void Play(RunLoop& loop, DatagramSource& source, const Limits& limits, const Player& player);

} // namespace sim
