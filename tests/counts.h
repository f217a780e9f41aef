// The counters of the code under test.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "v2x/v2xcount.h"

// The counts of a path since startCounting, without those of 0, by name.
using PathCounts = std::map<std::string, uint64_t>;

inline std::map<const v2x_counter*, uint64_t> g_countsBefore;

inline void startCounting() {
    for (const v2x_counter* counter = v2x_counter::First(); counter != nullptr; counter = counter->Next()) {
        g_countsBefore[counter] = counter->Count();
    }
}

inline PathCounts countsOf(const std::string& path) {
    PathCounts counts;
    for (const v2x_counter* counter = v2x_counter::First(); counter != nullptr; counter = counter->Next()) {
        const uint64_t count = counter->Count() - g_countsBefore[counter];
        if (path == counter->Path() && count > 0) {
            counts[counter->Name()] = count;
        }
    }
    return counts;
}
