// The daemon from outside: its process in /proc, and the counters in its log.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>

struct Stopwatch {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    int64_t ms() const { return (Clock::now() - start) / std::chrono::milliseconds(1); }
};

struct Sample {
    int64_t rssKib = 0;
    int64_t threads = 0;
    int64_t descriptors = 0;
    int64_t cpuMs = 0;    // user and system time of all threads since the start
    int64_t logBytes = 0; // all log files
};

// All but logBytes are 0 after the end of the process.
Sample sample(pid_t pid, const std::string& logPath);

// "path.name" and its count, from the daemon's last counter lines in all log files. A count of 0 is absent.
using Counts = std::map<std::string, uint64_t>;
Counts counts(const std::string& logPath);
uint64_t of(const Counts& counts, const std::string& name); // 0 when absent
