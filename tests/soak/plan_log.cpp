// The log's disk full, its folder gone or not writable, and no descriptors left while it rotates.
#include <algorithm>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <filesystem>
#include <sys/mount.h>
#include <sys/resource.h>

#include "log_faults.h"
#include "paths.h"
#include "plans.h"
#include "watch.h"

namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;

constexpr double REPORTS = 50;
constexpr int BACK_MS = 5000;
constexpr int SEEN_MS = 30000;     // for the daemon to meet the fault
constexpr uint32_t SHARE = 4;      // a fault takes seconds: one for so many of --times
constexpr const char* DEBUG = "5"; // lines with every reading
constexpr const char* INFO = "4";
constexpr const char* OUTAGE = "v2xlog: cannot write";
constexpr const char* DISK_FULL = "No space left on device";
constexpr const char* NO_DESCRIPTORS = "Too many open files";

std::string folderOf(const Unit& unit) {
    return fs::path(unit.logPath).parent_path().string();
}

// A small file system at a folder, for the life of this process. Why it is not there; "" when it is.
std::string mountDisk(const std::string& folder) {
    std::error_code error;
    fs::create_directories(folder, error);
    const bool isMounted = ownMounts().empty() && mount("soak", folder.c_str(), "tmpfs", 0, "size=1m") == 0;
    return isMounted || !ownMounts().empty() ? ownMounts() : std::string("may not mount: ") + strerror(errno);
}

// Writes a file until nothing more finds room.
void fill(const std::string& path) {
    const int fd = open(path.c_str(), O_WRONLY | O_CREAT | O_CLOEXEC, 0644);
    const std::string block(4096, 'x');
    for (size_t size = block.size(); size > 0; size /= 2) {
        while (write(fd, block.data(), size) > 0) {
        }
    }
    close(fd);
}

// As many descriptors of the daemon that no number below is free, but for the log file's own.
rlim_t numbersInUse(const Unit& unit) {
    std::map<int, std::string> used = descriptorsOf(unit.daemon->pid());
    std::erase_if(used, [&](const auto& entry) { return entry.second == unit.logPath; });
    int first = 0;
    while (used.contains(first)) {
        first++;
    }
    return static_cast<rlim_t>(first);
}

bool limitDescriptors(const Unit& unit, rlim_t soft) {
    rlimit limit = {};
    if (prlimit(unit.daemon->pid(), RLIMIT_NOFILE, nullptr, &limit) != 0) {
        return false;
    }
    limit.rlim_cur = std::min(soft, limit.rlim_max);
    return prlimit(unit.daemon->pid(), RLIMIT_NOFILE, &limit, nullptr) == 0;
}

// Level 7.
void traceAll(const Unit& unit) {
    UdpPeer tool;
    tool.sendTo(unit.logToolPort, hex("A55A0400 0000000000000000 3200 0F00 00  02 0000 0A00  414C4C0000000000 0700"));
}

// A log that is to rotate after a few lines more than the daemon writes at its start.
void fillLog(const Unit& unit) {
    constexpr size_t ROTATED_AT = size_t{10} * 1024 * 1024;
    constexpr size_t ROOM = 80000; // for the start of the daemon, about 50000
    std::error_code error;
    fs::create_directories(folderOf(unit), error);
    std::string text(ROTATED_AT - ROOM, '-');
    for (size_t at = 99; at < text.size(); at += 100) {
        text[at] = '\n';
    }
    writeFile(unit.logPath, text);
}

// Whether the daemon told of one more outage with this reason since there were `before`.
bool toldOf(const Unit& unit, const std::string& reason, size_t before) {
    return eventually([&] { return times(unit.err(), reason) > before; }, SEEN_MS);
}

bool isThere(const std::string& path) {
    std::error_code error;
    return fs::exists(path, error);
}

const struct Fault {
    const char* what;
    const char* level;
    bool isOverAndOver; // else with a daemon for each
    // Before the daemon starts: why the fault cannot be had, or "". The other two tell whether it took place; begin()
    // when the daemon has met it.
    std::string (*prepare)(const Unit& unit);
    bool (*begin)(const Unit& unit);
    bool (*end)(const Unit& unit);
} FAULTS[] = {
    {"disk full", DEBUG, true, [](const Unit& unit) { return mountDisk(folderOf(unit)); },
     [](const Unit& unit) {
         const size_t before = times(unit.err(), DISK_FULL);
         fill(folderOf(unit) + "/filler");
         return toldOf(unit, DISK_FULL, before);
     },
     [](const Unit& unit) {
         std::error_code error;
         return fs::remove(folderOf(unit) + "/filler", error);
     }},
    // The daemon makes it anew: that it is gone is the fault's end.
    {"folder removed", DEBUG, true, [](const Unit&) { return std::string(); },
     [](const Unit& unit) { return isThere(unit.logPath); },
     [](const Unit& unit) {
         // Again when the daemon has opened its file meanwhile.
         std::error_code error;
         return eventually([&] { return fs::remove_all(folderOf(unit), error) > 1 && !error; }, 1000);
     }},
    {"folder not writable", DEBUG, true,
     [](const Unit& unit) {
         const bool isDone = setWritable(unit.folder.path(), false);
         std::string why = isDone ? "" : std::string("may not make a folder immutable: ") + strerror(errno);
         setWritable(unit.folder.path(), true);
         return why;
     },
     [](const Unit& unit) {
         const size_t before = times(unit.err(), OUTAGE);
         return setWritable(folderOf(unit), false) && toldOf(unit, OUTAGE, before);
     },
     [](const Unit& unit) { return setWritable(folderOf(unit), true); }},
    {"no descriptors while it rotates", INFO, false, [](const Unit& unit) { return fillLog(unit), std::string(); },
     [](const Unit& unit) {
         const bool limited = limitDescriptors(unit, numbersInUse(unit));
         traceAll(unit);
         return limited && toldOf(unit, NO_DESCRIPTORS, 0);
     },
     [](const Unit& unit) {
         return limitDescriptors(unit, RLIM_INFINITY) && isThere(folderOf(unit) + "/spat_conv.1.log");
     }},
};

struct Seen {
    uint32_t rounds = 0;
    uint32_t met = 0;
    uint32_t back = 0;
    int64_t worstMs = 0;
    uint64_t sent = 0;
    uint64_t records = 0;
    bool lives = true;
};

void once(const Unit& unit, const Fault& fault, Seen& seen) {
    const bool begun = fault.begin(unit);
    std::this_thread::sleep_for(500ms);
    const Stopwatch end;
    const auto since = fs::file_time_type::clock::now();
    const auto hasNewLine = [&] {
        std::error_code error;
        const auto written = fs::last_write_time(unit.logPath, error);
        return !error && written > since && fs::file_size(unit.logPath, error) > 0;
    };
    const bool ended = fault.end(unit);
    seen.rounds++;
    seen.met += begun && ended ? 1 : 0;
    seen.back += eventually(hasNewLine, BACK_MS) ? 1 : 0;
    seen.worstMs = std::max(seen.worstMs, end.ms());
}

// Under a stream of reports, each of which is to come out as a record. Returns why it cannot be done, or "".
std::string rounds(const Fault& fault, uint32_t count, Seen& seen) {
    Unit unit;
    if (std::string why = fault.prepare(unit); !why.empty()) {
        return why;
    }
    const StackDesk desk(unit.stack);
    unit.startAndWaitReady({"-d", fault.level});
    startSource(unit, LEARNER, REPORTS);
    eventually([&] { return desk.of(LEARNER) > 0; });
    for (uint32_t round = 0; round < count; round++) {
        once(unit, fault, seen);
    }
    seen.sent += endSource(unit, LEARNER);
    std::this_thread::sleep_for(500ms);
    seen.records += desk.of(LEARNER);
    seen.lives = seen.lives && unit.daemon->wait(0) == -1;
    return "";
}

void show(const std::string& what, const Seen& seen, Table& table) {
    table.equal(what + ": met by the daemon", seen.met, seen.rounds, "times");
    table.check(what + ": the daemon", seen.lives, seen.lives ? "lives" : "ended", "lives");
    table.check(what + ": records of reports", seen.sent > 0 && seen.records == seen.sent,
                std::to_string(seen.records) + " of " + std::to_string(seen.sent), "all");
    table.check(what + ": logging back", seen.back == seen.rounds,
                std::to_string(seen.back) + " times, at most " + std::to_string(seen.worstMs) + " ms",
                std::to_string(seen.rounds) + " times within " + std::to_string(BACK_MS) + " ms");
}

} // namespace

void planLog(const Options& options, Table& table) {
    const uint32_t count = std::max(1U, options.times / SHARE);
    for (const Fault& fault : FAULTS) {
        Seen seen;
        std::string why;
        for (uint32_t done = 0; done < count && why.empty(); done += fault.isOverAndOver ? count : 1) {
            why = rounds(fault, fault.isOverAndOver ? count : 1, seen);
        }
        if (why.empty()) {
            show(fault.what, seen, table);
        } else {
            table.notRun(fault.what, why);
        }
    }
}
