#include "watch.h"

#include <chrono>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <unistd.h>
#include <vector>

namespace {

namespace fs = std::filesystem;

// The number behind `key` in /proc/PID/status.
int64_t statusField(const std::string& status, const std::string& key) {
    const size_t at = status.find("\n" + key + ":");
    return at == std::string::npos ? 0 : strtoll(status.c_str() + at + key.size() + 2, nullptr, 10);
}

std::string wholeFile(const std::string& path) {
    std::ifstream in(path, std::ios::binary);
    std::ostringstream text;
    text << in.rdbuf();
    return text.str();
}

int64_t cpuMs(const std::string& proc) {
    constexpr int UTIME = 14; // field of proc(5), counted from 1; the system's time follows
    const std::string stat = wholeFile(proc + "/stat");
    const size_t end = stat.rfind(')'); // the name before it may hold blanks
    if (end == std::string::npos) {
        return 0;
    }
    std::istringstream fields(stat.substr(end + 1));
    std::string skipped;
    for (int field = 3; field < UTIME; field++) {
        fields >> skipped;
    }
    int64_t user = 0;
    int64_t system = 0;
    fields >> user >> system;
    return (user + system) * 1000 / sysconf(_SC_CLK_TCK);
}

// The log file and its older ones, oldest first: "NAME.5.EXT" to "NAME.1.EXT", then "NAME.EXT".
std::vector<fs::path> logFiles(const std::string& logPath) {
    constexpr int OLDER = 5;
    const fs::path path(logPath);
    std::vector<fs::path> files;
    for (int i = OLDER; i > 0; i--) {
        files.push_back(path.parent_path() /
                        (path.stem().string() + "." + std::to_string(i) + path.extension().string()));
    }
    files.push_back(path);
    return files;
}

} // namespace

Sample sample(pid_t pid, const std::string& logPath) {
    const std::string proc = "/proc/" + std::to_string(pid);
    const std::string status = wholeFile(proc + "/status");
    std::error_code error;
    Sample now;
    now.atMs =
        std::chrono::duration_cast<std::chrono::milliseconds>(std::chrono::steady_clock::now().time_since_epoch())
            .count();
    now.rssKib = statusField(status, "VmRSS");
    now.threads = statusField(status, "Threads");
    now.descriptors = std::distance(fs::directory_iterator(proc + "/fd", error), fs::directory_iterator());
    now.cpuMs = cpuMs(proc);
    for (const fs::path& file : logFiles(logPath)) {
        const auto size = fs::file_size(file, error);
        now.logBytes += error ? 0 : static_cast<int64_t>(size);
    }
    return now;
}

// A counter line: "... counters PATH: NAME COUNT, NAME COUNT".
Counts counts(const std::string& logPath) {
    const std::string START = ":counters ";
    Counts found;
    for (const fs::path& file : logFiles(logPath)) {
        std::ifstream in(file);
        for (std::string line; std::getline(in, line);) {
            const size_t at = line.find(START);
            const size_t colon = line.find(": ", at + START.size());
            if (at == std::string::npos || colon == std::string::npos) {
                continue;
            }
            const std::string path = line.substr(at + START.size(), colon - at - START.size());
            std::istringstream parts(line.substr(colon + 2));
            for (std::string name, number; parts >> name >> number;) {
                found[path + "." + name] = strtoull(number.c_str(), nullptr, 10);
            }
        }
    }
    return found;
}

uint64_t of(const Counts& counts, const std::string& name) {
    const auto at = counts.find(name);
    return at == counts.end() ? 0 : at->second;
}
