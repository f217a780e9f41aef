// What became of daemons in which an allocation failed.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "table.h"
#include "work.h"

// How tries ended.
struct Tally {
    bool isMadeOrTakenDown = false; // the DDS library: what it throws then may meet destructors of its own
    int64_t tried = 0;
    std::map<std::string, int64_t> endings{}; // that may be
    std::vector<std::string> faults{};        // what was not to be
    void fault(uint64_t nth, const std::string& what) {
        faults.push_back("allocation " + std::to_string(nth) + ": " + what);
    }
};

// Enters how the daemon ended that the n-th allocation has ended; one that hangs is a fault.
void enterEnd(Bench& bench, uint64_t nth, Tally& tally);

// Whether it makes records after the n-th allocation failed. Otherwise its end is entered, or the fault that it has not
// ended.
bool isAtWork(Bench& bench, uint64_t nth, Tally& tally);

// The threads by their names, and "socket" for each socket. The log has a thread only when it needs one.
using Parts = std::multiset<std::string>;
Parts partsOf(const Unit& unit);

// Enters one that runs on, by what its log says and by `whole`, the parts of one that lacks nothing.
void enterRunning(Bench& bench, const Parts& whole, uint64_t nth, Tally& tally);

// Lines for the tries of each `stride`-th of `all` allocations.
void show(const std::string& what, const Tally& tally, uint64_t all, uint64_t stride, Table& table);
