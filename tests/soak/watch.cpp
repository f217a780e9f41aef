#include "watch.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>
#include <vector>

#include "process.h"

namespace {

namespace fs = std::filesystem;

int64_t cpuMs(pid_t pid) {
    clockid_t clock = {};
    timespec used = {};
    return clock_getcpuclockid(pid, &clock) == 0 && clock_gettime(clock, &used) == 0
               ? used.tv_sec * 1000 + used.tv_nsec / 1000000
               : 0;
}

// The log file and its older ones.
fs::directory_iterator logFiles(const std::string& logPath) {
    std::error_code error;
    return fs::directory_iterator(fs::path(logPath).parent_path(), error);
}

} // namespace

uint64_t statusField(pid_t pid, const std::string& key, int base) {
    const std::string status = readFile("/proc/" + std::to_string(pid) + "/status");
    const size_t at = status.find("\n" + key + ":");
    return at == std::string::npos ? 0 : strtoull(status.c_str() + at + key.size() + 2, nullptr, base);
}

std::map<int, std::string> descriptorsOf(pid_t pid) {
    std::map<int, std::string> found;
    std::error_code error;
    for (fs::directory_iterator at("/proc/" + std::to_string(pid) + "/fd", error);
         !error && at != fs::directory_iterator(); at.increment(error)) {
        std::error_code isClosed;
        found[std::stoi(at->path().filename())] = fs::read_symlink(at->path(), isClosed).string();
    }
    return found;
}

Sample sample(pid_t pid, const std::string& logPath) {
    std::error_code error;
    Sample now;
    now.atMs =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    now.rssKib = static_cast<int64_t>(statusField(pid, "VmRSS"));
    now.threads = static_cast<int64_t>(statusField(pid, "Threads"));
    now.descriptors = static_cast<int64_t>(descriptorsOf(pid).size());
    now.cpuMs = cpuMs(pid);
    for (const fs::directory_entry& file : logFiles(logPath)) {
        const auto size = file.file_size(error);
        now.logBytes += error ? 0 : static_cast<int64_t>(size);
    }
    return now;
}

// A counter line: "... counters PATH: NAME COUNT, NAME COUNT", and " [repeated ..." where it came again.
Counts counts(const std::string& logPath) {
    const std::string START = ":counters ";
    Counts found;
    for (const fs::directory_entry& file : logFiles(logPath)) {
        std::ifstream in(file.path());
        for (std::string line; std::getline(in, line);) {
            const size_t at = line.find(START);
            const size_t colon = line.find(": ", at + START.size());
            if (at == std::string::npos || colon == std::string::npos) {
                continue;
            }
            const std::string path = line.substr(at + START.size(), colon - at - START.size()) + ".";
            std::istringstream parts(line.substr(colon + 2, line.find(" [", colon) - colon - 2));
            for (std::string name, number; parts >> name >> number;) {
                uint64_t& count = found[path + name]; // they only grow
                count = std::max<uint64_t>(count, strtoull(number.c_str(), nullptr, 10));
            }
        }
    }
    return found;
}

uint64_t of(const Counts& counts, const std::string& name) {
    const auto at = counts.find(name);
    return at == counts.end() ? 0 : at->second;
}
