// What became of daemons in which an allocation failed.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "faults.h"
#include "table.h"
#include "unit.h"

// How tries ended.
struct Tally {
    int64_t tried = 0;
    int64_t ranOn = 0;                        // with all its parts
    std::map<std::string, int64_t> without;   // ran on without this part
    int64_t ended = 0;                        // in order: it said why
    std::map<std::string, int64_t> byLibrary; // ended by it
    std::vector<std::string> faults;          // what was not to be
};

// Enters how the daemon ended that the n-th allocation has ended; one that hangs is a fault.
void enterEnd(Unit& unit, const Faults& faults, uint64_t nth, Tally& tally);

// The threads by their names, and "socket" for each socket. The log has a thread only when it needs one.
using Parts = std::multiset<std::string>;
Parts partsOf(const Unit& unit);

// Enters one that runs on, by what its log says and by `whole`, the parts of one that lacks nothing.
void enterRunning(Unit& unit, const Parts& whole, uint64_t nth, Tally& tally);

void show(const std::string& what, const Tally& tally, Table& table);
