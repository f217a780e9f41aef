// The daemon seen from outside: what the kernel says of its process, and the counts in its log.
#pragma once

#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>

struct Sample {
    int64_t atMs = 0; // on the monotonic clock
    int64_t rssKib = 0;
    int64_t threads = 0;
    int64_t descriptors = 0;
    int64_t cpuMs = 0;    // user and system, of all threads, since the start
    int64_t logBytes = 0; // the log file and its older ones
};

// Of a process that is gone, all but the log are 0.
Sample sample(pid_t pid, const std::string& logPath);

// "path.what" and how much of it, as the daemon's last counter lines have it; a count of 0 is not in it. Reads the
// older log files, too.
using Counts = std::map<std::string, uint64_t>;
Counts counts(const std::string& logPath);
uint64_t of(const Counts& counts, const std::string& name); // 0 where there is none
