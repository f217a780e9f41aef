#include "endings.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <sstream>

#include "work.h"

namespace {

namespace fs = std::filesystem;

constexpr const char* PROGRAM = "v2x_spat_convert";

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

// The program or library of a frame, as "PATH(...) [...]" names it.
std::string moduleOf(const std::string& frame) {
    const std::string path = frame.substr(0, frame.find('('));
    return path.substr(path.rfind('/') + 1);
}

// Who ended the process, by the frames of its end: the first below those of the C and C++ libraries.
std::string enderOf(const std::string& frames) {
    constexpr const char* PASSED[] = {"v2x_soak_faults", "libc.so", "libstdc++", "libgcc_s", "ld-linux"};
    std::istringstream lines(frames);
    for (std::string line; std::getline(lines, line);) {
        const std::string name = moduleOf(line);
        if (std::none_of(std::begin(PASSED), std::end(PASSED),
                         [&](const char* start) { return name.starts_with(start); })) {
            return name;
        }
    }
    return "unknown";
}

bool mayEnd(const std::string& library) {
    return std::any_of(std::begin(ENDERS), std::end(ENDERS),
                       [&](const char* start) { return library.starts_with(start); });
}

bool hasLineFromProgram(const std::string& text) {
    const std::string start = std::string(PROGRAM) + ":";
    return text.starts_with(start) || text.find("\n" + start) != std::string::npos;
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

Parts missingOf(const Parts& whole, const Parts& parts) {
    Parts missing;
    std::set_difference(whole.begin(), whole.end(), parts.begin(), parts.end(), std::inserter(missing, missing.end()));
    return missing;
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
    const std::string unnamed = std::string(PROGRAM).substr(0, 15);
    return std::all_of(missing.begin(), missing.end(),
                       [&](const std::string& name) { return name == "socket" || name == unnamed; });
}

bool cloudWorks(Unit& unit) {
    constexpr int FOUND_MS = 5000;
    Work work(unit);
    work.startCloud({"--rate", "20", "--phases", "2", "--status", "none"});
    const bool works = work.documentArrives(FOUND_MS) && work.replyArrives(FOUND_MS);
    work.endCloud();
    return works;
}

std::string firstOf(const std::vector<std::string>& faults) {
    return faults.empty() ? "none" : std::to_string(faults.size()) + ", first " + faults.front();
}

std::string at(uint64_t nth) {
    return "allocation " + std::to_string(nth) + ": ";
}

} // namespace

void enterEnd(Unit& unit, const Faults& faults, uint64_t nth, Tally& tally) {
    constexpr int END_MS = 10000;
    const int status = unit.daemon->wait(END_MS);
    const std::string framesPath = faults.path() + ".frames";
    const std::string ender = enderOf(readFile(framesPath));
    if (status == 0 && hasLineFromProgram(unit.err())) {
        tally.ended++;
    } else if (status == NO_SCANNER_STATUS && unit.err().find(NO_SCANNER) != std::string::npos) {
        tally.byLibrary["libconfig, status 2"]++;
    } else if (status >= 128 && mayEnd(ender)) {
        tally.byLibrary[ender]++;
    } else {
        tally.faults.push_back(at(nth) + (status == -1 ? "hangs" : "status " + std::to_string(status)) + " in " +
                               ender + " \"" + unit.err().substr(0, 80) + "\"");
    }
    std::error_code error;
    fs::remove(framesPath, error);
}

Parts partsOf(const Unit& unit) {
    const std::string proc = "/proc/" + std::to_string(unit.daemon->pid());
    Parts parts;
    std::error_code error;
    for (fs::directory_iterator task(proc + "/task", error); !error && task != fs::directory_iterator();
         task.increment(error)) {
        std::string name;
        std::getline(std::ifstream(task->path() / "comm"), name);
        if (name != "v2xlog") {
            parts.insert(name);
        }
    }
    for (fs::directory_iterator fd(proc + "/fd", error); !error && fd != fs::directory_iterator();
         fd.increment(error)) {
        std::error_code isClosed;
        if (fs::read_symlink(fd->path(), isClosed).string().starts_with("socket:")) {
            parts.insert("socket");
        }
    }
    return parts;
}

void enterRunning(Unit& unit, const Parts& whole, uint64_t nth, Tally& tally) {
    constexpr int NAMED_MS = 300; // a thread gives itself its name
    Parts missing;
    const auto isWhole = [&] {
        missing = missingOf(whole, partsOf(unit));
        return missing.empty();
    };
    const std::string log = unit.log();
    if (log.empty() && unit.err().find(NO_LOG_FILE) == std::string::npos) {
        tally.faults.push_back(at(nth) + "has no log and does not say so");
    } else if (log.empty()) {
        tally.without["the log's file, which it says on standard error"]++;
    } else if (const std::string said = partSaid(log); !said.empty()) {
        tally.without[said]++;
    } else if (eventually(isWhole, NAMED_MS)) {
        tally.ranOn++;
    } else if (!isOfLibrary(missing)) {
        tally.faults.push_back(at(nth) + "does not say that it lacks" + text(missing));
    } else if (cloudWorks(unit)) {
        tally.ranOn++;
    } else {
        tally.without["the cloud, which libfastrtps does not say"]++;
    }
}

void show(const std::string& what, const Tally& tally, Table& table) {
    const std::string of = " of " + std::to_string(tally.tried);
    table.note(what + ": runs on", std::to_string(tally.ranOn) + of);
    for (const auto& [part, count] : tally.without) {
        table.note(what + ": runs on without " + part, std::to_string(count) + of);
    }
    if (tally.ended > 0) {
        table.note(what + ": ended in order", std::to_string(tally.ended) + of);
    }
    for (const auto& [library, count] : tally.byLibrary) {
        table.note(what + ": ended by " + library, std::to_string(count) + of);
    }
    table.check(what + ": crashed, hung, or did not work after", tally.faults.empty(), firstOf(tally.faults), "none");
}
