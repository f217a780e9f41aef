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
constexpr const char* HEADERS = "libfastrtps' headers";
constexpr const char* ENDERS[] = {"libfastrtps.so", "libconfig.so", HEADERS};

// What libconfig says when it exits, with the status 2.
constexpr const char* NO_SCANNER = "out of dynamic memory in libconfig_yy";
constexpr int NO_SCANNER_STATUS = 2;

constexpr const char* SOCKET = "socket";
constexpr const char* CLOUD_THREAD = "v2xdds";

// What the log says of a part that cannot be had: the cloud, which is the DDS library's, or one of the others.
constexpr struct {
    const char* line;
    const char* part;
    bool isCloud = false;
} SAID[] = {{"cannot join domain", "the cloud", true},
            {"cannot declare", "the cloud", true},
            {"no memory for a participant", "the cloud", true},
            {"malloc failed!", "the cloud", true},
            {"a call failed", "the cloud", true},
            {"cannot start its thread", "a thread"},
            {"Cannot allocate memory", "a socket"}};

bool startsWithOne(const std::string& name, std::span<const char* const> starts) {
    return std::any_of(starts.begin(), starts.end(), [&](const char* start) { return name.starts_with(start); });
}

// Who ended the process, by the frames of its end, "PATH(...) [...]" each: the first program or library below those of
// C and C++. An exception that left it on its way to the daemon's own code could have been caught there.
struct Ender {
    std::string name = "unknown";
    bool isThrown = false;
    bool isCaughtByNone = false;
};

// Whether the frame "PATH(+0xOFFSET) [...]" is where a constant of the DDS library's headers is made in the program,
// ahead of main: those files of ours that include them make no other.
bool isHeadersConstant(const std::string& frame) {
    constexpr const char* MADE_IN = "_GLOBAL__sub_I_v2xdds";
    const size_t at = frame.find("(+0x");
    const std::string command = "nm --defined-only -n " + frame.substr(0, at);
    FILE* const symbols = at != std::string::npos ? popen(command.c_str(), "r") : nullptr;
    if (symbols == nullptr) {
        return false;
    }
    const unsigned long long offset = std::stoull(frame.substr(at + 2), nullptr, 16);
    std::string function;
    char name[512];
    for (unsigned long long start; fscanf(symbols, "%llx %*c %511s", &start, name) == 2 && start <= offset;) {
        function = name;
    }
    pclose(symbols);
    return function.starts_with(MADE_IN);
}

Ender enderOf(const std::string& frames) {
    constexpr const char* PASSED[] = {"v2x_soak_faults", "libc.so", "libstdc++", "libgcc_s", "ld-linux"};
    std::istringstream lines(frames);
    Ender ender;
    bool isFound = false;
    for (std::string line; std::getline(lines, line);) {
        const std::string name = fs::path(line.substr(0, line.find('('))).filename();
        if (!isFound && startsWithOne(name, PASSED)) {
            ender.isThrown = ender.isThrown || name.starts_with("libstdc++");
        } else if (!isFound) {
            ender.name = name;
            isFound = true;
        } else if (name == PROGRAM) {
            ender.isCaughtByNone = ender.isThrown;
        }
        if (ender.name == PROGRAM && name == PROGRAM && isHeadersConstant(line)) {
            return {HEADERS};
        }
    }
    return ender;
}

// What standard error says when the log goes there.
constexpr const char* NO_LOG_FILE = "v2xlog: cannot write";

// What the log says that it lacks, by lines of the level "error".
struct Said {
    bool cloud = false;
    bool others = false;
    std::string text; // of the parts
};

Said saidIn(const std::string& log) {
    constexpr size_t LEVEL_AT = 24; // behind date and time
    std::istringstream lines(log);
    Said said;
    for (std::string line; std::getline(lines, line);) {
        for (const auto& row : SAID) {
            if (line.size() > LEVEL_AT && line[LEVEL_AT] == 'E' && line.find(row.line) != std::string::npos) {
                (row.isCloud ? said.cloud : said.others) = true;
                const bool isNew = said.text.find(row.part) == std::string::npos;
                said.text += isNew ? std::string(said.text.empty() ? " without " : ", ") + row.part : "";
            }
        }
    }
    return said;
}

std::string text(const Parts& parts) {
    std::string names;
    for (const std::string& name : parts) {
        names += " " + name;
    }
    return names;
}

// Its threads have the name of the program, as the kernel cuts it, and each of ours that reads a socket has a name.
bool isOfLibrary(const std::string& part) {
    static const std::string UNNAMED = PROGRAM.substr(0, 15);
    return part == SOCKET || part == UNNAMED;
}

bool isExplained(const std::string& part, const Said& said) {
    const bool isCloud = isOfLibrary(part) || part == CLOUD_THREAD;
    return (said.cloud && isCloud) || (said.others && (part == SOCKET || !isCloud));
}

// What it sends unasked, through sockets that have no thread.
bool beatsAndAsks(Work& work) {
    constexpr int BEAT_MS = 3000;
    const uint64_t beats = work.heartbeats();
    const uint64_t requests = work.requests();
    return eventually([&] { return work.heartbeats() > beats && work.requests() > requests; }, BEAT_MS);
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
    const Ender ender = enderOf(readFile(framesPath));
    if (status == 0 && ("\n" + bench.unit.err()).find("\n" + PROGRAM + ":") != std::string::npos) {
        tally.endings["ended in order"]++;
    } else if (status == NO_SCANNER_STATUS && bench.unit.err().find(NO_SCANNER) != std::string::npos) {
        tally.endings["ended by libconfig, status 2"]++;
    } else if (status >= 128 && startsWithOne(ender.name, ENDERS) &&
               (!ender.isCaughtByNone || tally.isMadeOrTakenDown)) {
        // It may have met a destructor of the library or one of the daemon's: the frames do not tell.
        tally.endings["ended by " + ender.name + (ender.isCaughtByNone ? ", thrown through the daemon's code" : "")]++;
    } else {
        tally.fault(nth, (status == -1 ? "hangs" : "status " + std::to_string(status)) + " in " + ender.name +
                             (ender.isCaughtByNone ? ", which was not caught, \"" : " \"") +
                             bench.unit.err().substr(0, bench.unit.err().find('\n')) + "\"");
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
            parts.insert(SOCKET);
        }
    }
    return parts;
}

void enterRunning(Bench& bench, const Parts& whole, uint64_t nth, Tally& tally) {
    constexpr int STARTED_MS = 5000; // records come through while other parts still start, on a busy machine late
    std::string log;
    Said said;
    Parts unsaid;
    const auto saysAll = [&] {
        log = bench.unit.log();
        said = saidIn(log.empty() ? bench.unit.err() : log);
        const Parts parts = partsOf(bench.unit);
        Parts missing;
        std::set_difference(whole.begin(), whole.end(), parts.begin(), parts.end(),
                            std::inserter(missing, missing.end()));
        std::erase_if(missing, [&](const std::string& part) { return isExplained(part, said); });
        unsaid = std::move(missing);
        return unsaid.empty();
    };
    const bool isExplainedWhole = eventually(saysAll, STARTED_MS);
    std::string ending = "runs on" + said.text + (log.empty() ? ", its log on standard error" : "");
    if (log.empty() && bench.unit.err().find(NO_LOG_FILE) == std::string::npos) {
        tally.fault(nth, "has no log and does not say so");
    } else if (isExplainedWhole) {
        tally.endings[ending]++;
    } else if (!std::all_of(unsaid.begin(), unsaid.end(), isOfLibrary) || !beatsAndAsks(bench.work)) {
        tally.fault(nth, "does not say that it lacks" + text(unsaid));
    } else {
        ending += cloudWorks(bench.work) ? "" : ", without the cloud, which libfastrtps does not say";
        tally.endings[ending]++;
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
