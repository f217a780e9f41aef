// What every simulator's command line has in common.
#pragma once

#include <cstdint>
#include <string>

namespace sim {

// How long a run lasts, whichever comes first; 0 = no such limit.
struct Limits {
    double seconds = 0;
    uint64_t count = 0;
};

struct RunOptions {
    Limits limits;
    bool quiet = false;      // nothing but the summary (and the seed)
    bool json = false;       // standard output is for programs; what is for people goes to standard error
    std::string summaryFile; // the summary as JSON goes here too, unless empty
};

} // namespace sim
