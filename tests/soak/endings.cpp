#include "endings.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <span>
#include <sstream>

#include "watch.h"

namespace {

namespace fs = std::filesystem;

const std::string PROGRAM = "v2x_spat_convert";

// Those that docs/decisions.md names.
constexpr const char* ENDERS[] = {"libfastrtps.so", "libconfig.so"};

// What libconfig says when it exits, with the status 2.
constexpr const char* NO_SCANNER = "out of dynamic memory in libconfig_yy";
constexpr int NO_SCANNER_STATUS = 2;

// What the log says of a part that cannot be had.
constexpr struct {
    const char* line;
    const char* part;
} SAID[] = {{"cannot join domain", "the cloud"},
            {"cannot declare", "the cloud"},
            {"no memory for a participant", "the cloud"},
            {"malloc failed!", "the cloud"},
            {"a call failed", "the cloud"},
            {"cannot start its thread", "a thread"},
            {"Cannot allocate memory", "a socket"}};

bool startsWithOne(const std::string& name, std::span<const char* const> starts) {
    return std::any_of(starts.begin(), starts.end(), [&](const char* start) { return name.starts_with(start); });
}

// Who ended the process, by the frames of its end, "PATH(...) [...]" each: the first program or library below those of
// C and C++.
std::string enderOf(const std::string& frames) {
    constexpr const char* PASSED[] = {"v2x_soak_faults", "libc.so", "libstdc++", "libgcc_s", "ld-linux"};
    std::istringstream lines(frames);
    for (std::string line; std::getline(lines, line);) {
        std::string name = fs::path(line.substr(0, line.find('('))).filename();
        if (!startsWithOne(name, PASSED)) {
            return name;
        }
    }
    return "unknown";
}

// What standard error says when the log goes there.
constexpr const char* NO_LOG_FILE = "v2xlog: cannot write";

// By a line of the level "error".
std::string partSaid(const std::string& log) {
    constexpr size_t LEVEL_AT = 24; // behind date and time
    std::istringstream lines(log);
    for (std::string line; std::getline(lines, line);) {
        for (const auto& row : SAID) {
            if (line.size() > LEVEL_AT && line[LEVEL_AT] == 'E' && line.find(row.line) != std::string::npos) {
                return row.part;
            }
        }
    }
    return "";
}

std::string text(const Parts& parts) {
    std::string names;
    for (const std::string& name : parts) {
        names += " " + name;
    }
    return names;
}

// Its threads have the name of the program, as the kernel cuts it, and each of ours that reads a socket has a name.
bool isOfLibrary(const Parts& missing) {
    const std::string unnamed = PROGRAM.substr(0, 15);
    return std::all_of(missing.begin(), missing.end(),
                       [&](const std::string& name) { return name == "socket" || name == unnamed; });
}

bool cloudWorks(Work& work) {
    constexpr int FOUND_MS = 5000;
    work.startCloud({"--rate", "20", "--phases", "2", "--status", "none"});
    const bool works = work.documentArrives(FOUND_MS) && work.replyArrives(FOUND_MS);
    work.endCloud();
    return works;
}

} // namespace

void enterEnd(Bench& bench, uint64_t nth, Tally& tally) {
    constexpr int END_MS = 10000;
    const int status = bench.unit.daemon->wait(END_MS);
    const std::string framesPath = bench.faults.path() + ".frames";
    const std::string ender = enderOf(readFile(framesPath));
    if (status == 0 && ("\n" + bench.unit.err()).find("\n" + PROGRAM + ":") != std::string::npos) {
        tally.endings["ended in order"]++;
    } else if (status == NO_SCANNER_STATUS && bench.unit.err().find(NO_SCANNER) != std::string::npos) {
        tally.endings["ended by libconfig, status 2"]++;
    } else if (status >= 128 && startsWithOne(ender, ENDERS)) {
        tally.endings["ended by " + ender]++;
    } else {
        tally.fault(nth, (status == -1 ? "hangs" : "status " + std::to_string(status)) + " in " + ender + " \"" +
                             bench.unit.err().substr(0, 80) + "\"");
    }
    std::error_code error;
    fs::remove(framesPath, error);
}

bool isAtWork(Bench& bench, uint64_t nth, Tally& tally) {
    constexpr int RECORD_MS = 5000;
    constexpr int ENDING_MS = 50; // a process that ends takes its time
    const bool works = bench.work.reportArrives(RECORD_MS);
    if (bench.unit.daemon->wait(ENDING_MS) != -1) {
        enterEnd(bench, nth, tally);
        return false;
    }
    if (!works) {
        tally.fault(nth, "no record");
    }
    return works;
}

Parts partsOf(const Unit& unit) {
    Parts parts;
    std::error_code error;
    for (fs::directory_iterator task("/proc/" + std::to_string(unit.daemon->pid()) + "/task", error);
         !error && task != fs::directory_iterator(); task.increment(error)) {
        std::string name;
        std::getline(std::ifstream(task->path() / "comm"), name);
        if (name != "v2xlog") {
            parts.insert(name);
        }
    }
    for (const auto& [number, target] : descriptorsOf(unit.daemon->pid())) {
        if (target.starts_with("socket:")) {
            parts.insert("socket");
        }
    }
    return parts;
}

void enterRunning(Bench& bench, const Parts& whole, uint64_t nth, Tally& tally) {
    constexpr int NAMED_MS = 300; // a thread gives itself its name
    Parts missing;
    const auto isWhole = [&] {
        const Parts parts = partsOf(bench.unit);
        missing.clear();
        std::set_difference(whole.begin(), whole.end(), parts.begin(), parts.end(),
                            std::inserter(missing, missing.end()));
        return missing.empty();
    };
    const std::string log = bench.unit.log();
    if (log.empty() && bench.unit.err().find(NO_LOG_FILE) == std::string::npos) {
        tally.fault(nth, "has no log and does not say so");
    } else if (log.empty()) {
        tally.endings["runs on without the log's file, which it says on standard error"]++;
    } else if (const std::string said = partSaid(log); !said.empty()) {
        tally.endings["runs on without " + said]++;
    } else if (eventually(isWhole, NAMED_MS)) {
        tally.endings["runs on"]++;
    } else if (!isOfLibrary(missing)) {
        tally.fault(nth, "does not say that it lacks" + text(missing));
    } else {
        tally.endings[cloudWorks(bench.work) ? "runs on"
                                             : "runs on without the cloud, which libfastrtps does not say"]++;
    }
}

void show(const std::string& what, const Tally& tally, uint64_t all, uint64_t stride, Table& table) {
    const std::string of = " of " + std::to_string(all);
    const auto asked = static_cast<int64_t>((all + stride - 1) / stride);
    // A run that needs fewer allocations than the one they were counted in does not come to the last.
    table.check(what + ": allocations that failed", tally.tried <= asked && tally.tried * 20 >= asked * 19,
                std::to_string(tally.tried) + of, std::to_string(asked) + of + ", or 1 in 20 less");
    for (const auto& [ending, count] : tally.endings) {
        table.note(std::string(what).append(": ").append(ending),
                   std::to_string(count) + " of " + std::to_string(tally.tried));
    }
    const std::vector<std::string>& faults = tally.faults;
    table.check(what + ": crashed, hung, or did not work after", faults.empty(),
                faults.empty() ? "none" : std::to_string(faults.size()) + ", first " + faults.front(), "none");
}
