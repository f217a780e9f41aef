// What v2x_spat_soak can do to the daemon, a plan each. A plan starts daemons and peers of its own, and ends them.
#pragma once

#include <cstdint>
#include <string>

#include "table.h"

struct Options {
    double minutes = 1;          // of the steady plan
    double scale = 10;           // of the steady plan's traffic, to the nominal rates
    uint32_t seed = 1;           // of what is random
    uint32_t times = 20;         // how often a fault is done over
    uint32_t malformed = 100000; // inputs of a kind per interface
};

using Plan = void(const Options& options, Table& table);
Plan planSteady, planFlood, planPeers, planRestarts, planPorts, planLog, planClock, planMemory, planCalls, planSignals;
