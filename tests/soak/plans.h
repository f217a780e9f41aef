// The plans of v2x_spat_soak. Each starts daemons and peers of its own and ends them.
#pragma once

#include <cstdint>

#include "report.h"

struct Options {
    double minutes = 1;          // of the steady plan
    double scale = 10;           // of the steady plan's traffic, to the nominal rates
    uint32_t seed = 1;           // of random input
    uint32_t times = 10;         // repeats of each fault
    uint32_t malformed = 100000; // inputs per interface
};

using Plan = void(const Options& options, Report& report);
Plan planSteady, planFlood, planPeers;
