#include "watch.h"

#include <algorithm>
#include <cstdlib>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "process.h"

namespace {

namespace fs = std::filesystem;

fs::directory_iterator filesIn(const fs::path& folder) {
    std::error_code error;
    return fs::directory_iterator(folder, error); // at its end when the folder is gone
}

} // namespace

Sample sample(pid_t pid, const std::string& logPath) {
    const std::string process = "/proc/" + std::to_string(pid);
    const std::string status = readFile(process + "/status");
    const auto field = [&](const std::string& key) -> int64_t {
        const size_t at = status.find("\n" + key + ":");
        return at == std::string::npos ? 0 : strtoll(status.c_str() + at + key.size() + 2, nullptr, 10);
    };
    Sample now;
    now.rssKib = field("VmRSS");
    now.threads = field("Threads");
    now.descriptors = std::distance(filesIn(process + "/fd"), fs::directory_iterator());
    clockid_t clock = {};
    timespec used = {};
    if (clock_getcpuclockid(pid, &clock) == 0 && clock_gettime(clock, &used) == 0) {
        now.cpuMs = used.tv_sec * 1000 + used.tv_nsec / 1000000;
    }
    for (const fs::directory_entry& file : filesIn(fs::path(logPath).parent_path())) {
        std::error_code error;
        const auto size = file.file_size(error);
        now.logBytes += error ? 0 : static_cast<int64_t>(size);
    }
    return now;
}

// A counter line: "... counters PATH: NAME COUNT, NAME COUNT", perhaps with " [...]" behind it.
Counts counts(const std::string& logPath) {
    const std::string START = ":counters ";
    Counts found;
    for (const fs::directory_entry& file : filesIn(fs::path(logPath).parent_path())) {
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
                uint64_t& count = found[path + name]; // counts only grow
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
