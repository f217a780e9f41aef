// The daemon seen from outside: what the kernel says of its process, and the counts in its log.
#pragma once

#include <chrono>
#include <cstdint>
#include <map>
#include <string>
#include <sys/types.h>

// The number behind `key` in /proc/PID/status; 0 where there is none.
uint64_t statusField(pid_t pid, const std::string& key, int base = 10);

// Its descriptors, and what each is: a path, or "socket:" and more.
std::map<int, std::string> descriptorsOf(pid_t pid);

struct Stopwatch {
    using Clock = std::chrono::steady_clock;
    const Clock::time_point start = Clock::now();
    int64_t ms() const { return std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - start).count(); }
};

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
