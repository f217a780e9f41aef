// The counters of all data paths: those of the modules and those of the UDP sockets.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <vector>

struct v2xspatconv_count_t {
    const char* name; // in static storage
    uint64_t value;
};

// Returns the counts of each data path, by the name of the path. The name of a socket is its data path. Any thread.
std::map<std::string, std::vector<v2xspatconv_count_t>> v2xspatconv_ReadCounts(void);
