// The counters of the code under test.
#pragma once

#include <cstdint>
#include <map>
#include <string>

#include "v2x/v2xcount.h"

// Those of a path that are not 0, by name.
using PathCounts = std::map<std::string, uint64_t>;
inline PathCounts countsOf(const std::string& path) {
    PathCounts counts;
    for (const v2x_counter* counter = v2x_counter::First(); counter != nullptr; counter = counter->Next()) {
        if (path == counter->Path() && counter->Count() > 0) {
            counts[counter->Name()] = counter->Count();
        }
    }
    return counts;
}
