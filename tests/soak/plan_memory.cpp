// The n-th allocation fails: over a start-up, and over messages of each kind.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <filesystem>
#include <gtest/gtest.h>
#include <map>
#include <optional>
#include <sstream>
#include <thread>

#include "messages.h"
#include "plans.h"
#include "work.h"

namespace {

using Clock = std::chrono::steady_clock;
using Faults = Shared<fault_control>;

void arm(const Faults& faults, fault_call call, uint64_t nth) {
    faults->call = FAULT_NONE;
    faults->fired = 0;
    faults->error = ENOMEM;
    faults->first = faults->last = faults->counts[call] + nth;
    faults->call = call;
}

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

// How tries ended.
struct Tally {
    int64_t tried = 0;
    int64_t ranOn = 0;
    int64_t ended = 0;                        // in order: it said why
    std::map<std::string, int64_t> byLibrary; // ended by it
    std::vector<std::string> faults;          // what was not to be
};

std::string firstOf(const std::vector<std::string>& faults) {
    return faults.empty() ? "none" : std::to_string(faults.size()) + ", first " + faults.front();
}

void show(const std::string& what, const Tally& tally, Table& table) {
    table.atLeast(what + ": failures", tally.tried, 1);
    table.note(what + ": runs on", std::to_string(tally.ranOn));
    if (tally.ended > 0) {
        table.note(what + ": ended in order", std::to_string(tally.ended));
    }
    for (const auto& [library, count] : tally.byLibrary) {
        table.note(what + ": ended by " + library, std::to_string(count) + " of " + std::to_string(tally.tried));
    }
    table.check(what + ": crashed, or did not work after", tally.faults.empty(), firstOf(tally.faults), "none");
}

// Enters how the daemon ended that a failure has ended.
void enterEnd(Unit& unit, const Faults& faults, uint64_t nth, Tally& tally) {
    constexpr const char* PROGRAM = "v2x_spat_convert";
    const int status = unit.daemon->wait(20000);
    const std::string frames = readFile(faults.path() + ".frames");
    const std::string ender = enderOf(frames);
    if (status < 128 && !unit.err().empty()) {
        tally.ended++;
    } else if (status >= 128 && !frames.empty() && (ender != PROGRAM || faults->beforeMain == 0)) {
        tally.byLibrary[faults->beforeMain == 0 ? ender + " before main" : ender]++;
    } else {
        tally.faults.push_back("allocation " + std::to_string(nth) + ": status " + std::to_string(status) + " in " +
                               ender);
    }
    std::error_code error;
    std::filesystem::remove(faults.path() + ".frames", error);
}

// Until it says so, or is gone.
bool isReady(Unit& unit) {
    std::string told;
    eventually([&] { return (told = unit.notify.receive(20)) == "READY=1" || unit.daemon->wait(0) != -1; });
    return told == "READY=1";
}

bool givesRecord(Unit& unit) {
    unit.learner.sendTo(unit.reportPort, hex("FEFE10 000A 000100 03010F00000000"));
    bool arrived = false;
    eventually([&] { return (arrived = unit.stack.receive(50).has_value()) || unit.daemon->wait(0) != -1; }, 5000);
    return arrived;
}

// One start-up whose n-th allocation fails. False when it has not so many.
bool tryStart(uint64_t nth, Tally& tally) {
    Unit unit;
    const Faults faults(unit.folder);
    arm(faults, FAULT_ALLOCATION, nth);
    unit.start({}, faults.environment("v2x_soak_faults"));
    const bool ready = isReady(unit);
    const bool fired = faults->fired > 0;
    tally.tried += fired ? 1 : 0;
    if (!ready) {
        enterEnd(unit, faults, nth, tally);
    } else if (!givesRecord(unit)) {
        if (unit.daemon->wait(0) != -1) {
            enterEnd(unit, faults, nth, tally);
        } else {
            tally.faults.push_back("allocation " + std::to_string(nth) + ": no record");
        }
    } else {
        tally.ranOn += fired ? 1 : 0;
    }
    return fired;
}

struct Start {
    uint64_t beforeMain;
    uint64_t all;
};

Start countAStart() {
    Unit unit;
    const Faults faults(unit.folder);
    unit.startAndWaitReady({}, faults.environment("v2x_soak_faults"));
    return {faults->beforeMain, faults->counts[FAULT_ALLOCATION]};
}

// From the first to the last, so many tries.
void tryStarts(const std::string& what, uint64_t first, uint64_t last, uint64_t tries, Table& table) {
    const uint64_t all = last - first + 1;
    const uint64_t stride = std::max<uint64_t>(all / tries, 1);
    Tally tally;
    for (uint64_t nth = first; nth <= last && tryStart(nth, tally); nth += stride) {
    }
    show(what + " (" + std::to_string(all) + " allocations)", tally, table);
}

// A kind of message: sent here, or by the cloud's simulator with these arguments, or asked for by the daemon.
struct Message {
    const char* name;
    void (*send)(const Unit& unit, Work& work);
    std::vector<std::string> cloud;
};

const Message MESSAGES[] = {
    {"report", [](const Unit&, Work& work) { work.sendReport(); }, {}},
    {"frame", [](const Unit&, Work& work) { work.sendFrame(); }, {}},
    {"log request", [](const Unit& unit, Work&) { unit.controller.sendTo(unit.logToolPort, LOG_REQUEST); }, {}},
    {"reply", nullptr, {"--rate", "0", "--status", "none"}},
    {"document", nullptr, {"--rate", "100", "--phases", "2", "--status", "none"}},
    {"document in pieces", nullptr, {"--rate", "100", "--phases", "24", "--status", "none"}},
    {"cloud status", nullptr, {"--rate", "0", "--status-interval", "0.02"}},
};

// A daemon at work.
struct Session {
    explicit Session(const Message& message) : faults(unit.folder) {
        unit.startAndWaitReady({}, faults.environment("v2x_soak_faults"));
        work.emplace(unit);
        if (!message.cloud.empty()) {
            work->startCloud(message.cloud);
            EXPECT_TRUE(work->replyArrives(20000));
        }
    }
    Unit unit;
    Faults faults;
    std::optional<Work> work;
};

// One failure while such messages come; false when there was none.
bool failDuring(const Message& message, Session& session, fault_call call, uint64_t nth) {
    constexpr int NONE_MS = 3000; // so long without an allocation: there are no more
    arm(session.faults, call, nth);
    const bool fired = eventually(
        [&] {
            if (message.send != nullptr) {
                message.send(session.unit, *session.work);
            }
            return session.faults->fired > 0;
        },
        NONE_MS);
    session.faults->call = FAULT_NONE;
    return fired;
}

// Whether the daemon is gone; the end of a process that ends takes its time.
bool isGone(Unit& unit) {
    constexpr int ENDING_MS = 50;
    return unit.daemon->wait(ENDING_MS) != -1;
}

// After the n-th failure; false when a new daemon is needed.
bool enterOutcome(Session& session, uint64_t nth, Tally& tally) {
    const bool works = session.work->reportArrives(5000);
    if (isGone(session.unit)) {
        enterEnd(session.unit, session.faults, nth, tally);
        return false;
    }
    if (!works) {
        tally.faults.push_back("allocation " + std::to_string(nth) + ": no record");
        return false;
    }
    tally.ranOn++;
    return true;
}

// The n-th of the allocations while such messages come, n from 1 on.
void tryMessage(const Message& message, fault_call call, uint64_t upTo, Table& table) {
    constexpr auto LONGEST = std::chrono::seconds(6); // where allocations are rare
    const std::string what =
        std::string(message.name) + (call == FAULT_ALLOCATION_OWN ? ", own threads" : ", all threads");
    Tally tally;
    std::optional<Session> session;
    const auto end = Clock::now() + LONGEST;
    for (uint64_t nth = 1; nth <= upTo && Clock::now() < end; nth++) {
        if (!session) {
            session.emplace(message);
        }
        if (!failDuring(message, *session, call, nth)) {
            break;
        }
        tally.tried++;
        if (!enterOutcome(*session, nth, tally)) {
            session.reset();
        }
    }
    if (session && !message.cloud.empty() && !session->work->replyArrives()) {
        tally.faults.emplace_back("at the end: no reply");
    }
    if (tally.tried == 0) {
        table.note("not run: " + what, "allocates nothing");
        return;
    }
    show(what, tally, table);
}

} // namespace

void planMemory(const Options& options, Table& table) {
    if (V2X_SANITIZED) {
        table.notRun("all of it", "sanitizer build");
        return;
    }
    const Start start = countAStart();
    const uint64_t tries = options.times;
    tryStarts("libraries before main", 1, start.beforeMain, tries * 2, table);
    for (const Message& message : MESSAGES) {
        tryMessage(message, FAULT_ALLOCATION_OWN, tries * 5, table);
        tryMessage(message, FAULT_ALLOCATION, tries / 4 + 1, table);
    }
    tryStarts("start-up", start.beforeMain + 1, start.all + 50, tries * 40, table);
}
