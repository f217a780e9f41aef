// The n-th allocation fails: over a start-up, and over messages of each kind.
#include <algorithm>
#include <cerrno>
#include <chrono>
#include <gtest/gtest.h>
#include <optional>
#include <thread>

#include "endings.h"
#include "messages.h"
#include "plans.h"
#include "work.h"

namespace {

void armOne(const Faults& faults, fault_call call, uint64_t nth) {
    arm(faults, call, ENOMEM, nth, nth);
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

// Whether the daemon is gone; the end of a process that ends takes its time.
bool isGone(Unit& unit) {
    constexpr int ENDING_MS = 50;
    return unit.daemon->wait(ENDING_MS) != -1;
}

// A start in which nothing fails.
struct Start {
    uint64_t beforeMain;
    uint64_t all;
    Parts whole;
};

Start countAStart() {
    constexpr int SETTLED_MS = 500;
    Unit unit;
    const Faults faults(unit.folder);
    unit.startAndWaitReady({}, faults.environment("v2x_soak_faults"));
    const uint64_t all = faults->counts[FAULT_ALLOCATION];
    std::this_thread::sleep_for(std::chrono::milliseconds(SETTLED_MS));
    return {faults->beforeMain, all, partsOf(unit)};
}

// The allocations that every start makes: some make a few more.
Start countStarts() {
    constexpr int STARTS = 5;
    Start least = countAStart();
    for (int i = 1; i < STARTS; i++) {
        least.all = std::min(least.all, countAStart().all);
    }
    return least;
}

// One start-up whose n-th allocation fails.
void tryStart(const Start& start, uint64_t nth, Tally& tally) {
    constexpr int LATE_MS = 3000;
    Unit unit;
    const Faults faults(unit.folder);
    armOne(faults, FAULT_ALLOCATION, nth);
    unit.start({}, faults.environment("v2x_soak_faults"));
    const bool ready = isReady(unit);
    // The last ones may be made just after it said so.
    eventually([&] { return faults->fired > 0 || unit.daemon->wait(0) != -1; }, LATE_MS);
    if (ready && givesRecord(unit)) {
        enterRunning(unit, start.whole, nth, tally);
    } else if (ready && !isGone(unit)) {
        tally.faults.push_back("allocation " + std::to_string(nth) + ": no record");
    } else {
        enterEnd(unit, faults, nth, tally);
    }
    tally.tried += faults->fired > 0 ? 1 : 0;
}

// How many of so many allocations are made to fail, at most so often; and after which the next.
uint64_t strideOf(uint64_t all, uint64_t atMost) {
    return (all + atMost - 1) / atMost;
}

void showFired(const std::string& what, const Tally& tally, uint64_t all, uint64_t stride, Table& table) {
    const std::string of = " of " + std::to_string(all);
    const auto asked = static_cast<int64_t>((all + stride - 1) / stride);
    // A run that needs fewer allocations than the one they were counted in does not come to the last.
    table.check(what + ": allocations that failed", tally.tried <= asked && tally.tried * 20 >= asked * 19,
                std::to_string(tally.tried) + of, std::to_string(asked) + of + ", or 1 in 20 less");
}

// From the first to the last, at most so many tries.
void tryStarts(const std::string& what, const Start& start, uint64_t first, uint64_t last, uint64_t atMost,
               Table& table) {
    const uint64_t all = last - first + 1;
    const uint64_t stride = strideOf(all, atMost);
    Tally tally;
    for (uint64_t nth = first; nth <= last; nth += stride) {
        tryStart(start, nth, tally);
    }
    showFired(what, tally, all, stride, table);
    show(what, tally, table);
}

// A kind of message: sent here, or by the cloud's simulator with these arguments, or asked for by the daemon.
struct Message {
    const char* name;
    void (*send)(const Unit& unit, Work& work);
    std::vector<std::string> cloud;
    uint64_t (*passed)(Work& work) = nullptr; // so many until now, where it is not sent here
};

constexpr const char* STATUS_INTERVAL = "0.02"; // seconds

const Message MESSAGES[] = {
    {"report", [](const Unit&, Work& work) { work.sendReport(); }, {}},
    {"frame", [](const Unit&, Work& work) { work.sendFrame(); }, {}},
    {"log request", [](const Unit& unit, Work&) { unit.controller.sendTo(unit.logToolPort, LOG_REQUEST); }, {}},
    {"reply", nullptr, {"--rate", "0", "--status", "none"}, [](Work& work) { return work.documentsUp(); }},
    {"document",
     nullptr,
     {"--rate", "100", "--phases", "2", "--status", "none"},
     [](Work& work) { return work.documents(); }},
    {"document in pieces",
     nullptr,
     {"--rate", "100", "--phases", "24", "--status", "none"},
     [](Work& work) { return work.documents(); }},
    {"cloud status", nullptr, {"--rate", "0", "--status-interval", STATUS_INTERVAL}},
};

// A daemon at work.
struct Session {
    static constexpr int FOUND_MS = 20000;
    explicit Session(const Message& message) : faults(unit.folder) {
        unit.startAndWaitReady({}, faults.environment("v2x_soak_faults"));
        work.emplace(unit);
        if (!message.cloud.empty()) {
            work->startCloud(message.cloud);
            EXPECT_TRUE(work->replyArrives(FOUND_MS));
        }
        if (message.passed != nullptr) {
            const uint64_t before = message.passed(*work);
            EXPECT_TRUE(eventually([&] { return message.passed(*work) > before; }, FOUND_MS));
        }
    }
    Unit unit;
    Faults faults;
    std::optional<Work> work;
};

// Allocations while one message of a kind passes, of all that are made meanwhile.
struct Counted {
    uint64_t own;
    uint64_t all;
};

Counted countMessage(const Message& message) {
    constexpr uint64_t SENT = 20;
    constexpr auto PAUSE = std::chrono::milliseconds(25);
    constexpr auto LAST = std::chrono::milliseconds(700); // until the last has passed
    constexpr auto LOOK = std::chrono::milliseconds(3100);
    Session session(message);
    Work& work = *session.work;
    const uint64_t own = session.faults->counts[FAULT_ALLOCATION_OWN];
    const uint64_t all = session.faults->counts[FAULT_ALLOCATION];
    uint64_t messages = SENT;
    if (message.send != nullptr) {
        for (uint64_t i = 0; i < SENT; i++) {
            message.send(session.unit, work);
            std::this_thread::sleep_for(PAUSE);
        }
        std::this_thread::sleep_for(LAST);
    } else {
        const uint64_t before = message.passed != nullptr ? message.passed(work) : 0;
        std::this_thread::sleep_for(LOOK);
        messages =
            message.passed != nullptr
                ? message.passed(work) - before
                : static_cast<uint64_t>(std::chrono::duration<double>(LOOK).count() / std::stod(STATUS_INTERVAL));
    }
    const auto each = [&](uint64_t count) { return (count + messages - 1) / std::max<uint64_t>(messages, 1); };
    return {each(session.faults->counts[FAULT_ALLOCATION_OWN] - own),
            each(session.faults->counts[FAULT_ALLOCATION] - all)};
}

// One failure while such messages come; false when there was none.
bool failDuring(const Message& message, Session& session, fault_call call, uint64_t nth) {
    constexpr int NONE_MS = 5000;
    armOne(session.faults, call, nth);
    const bool fired = eventually(
        [&] {
            if (message.send != nullptr) {
                message.send(session.unit, *session.work);
            }
            if (session.faults->fired == 0 && session.faults->counts[call] > session.faults->last) {
                armOne(session.faults, call, nth); // it was made while this one was armed
            }
            return session.faults->fired > 0;
        },
        NONE_MS);
    session.faults->call = FAULT_NONE;
    return fired;
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

// Of the allocations while such a message passes, at most so many.
void tryMessage(const Message& message, fault_call call, uint64_t all, uint64_t atMost, Table& table) {
    const std::string what =
        std::string(message.name) + (call == FAULT_ALLOCATION_OWN ? ", own threads" : ", all threads");
    if (all == 0) {
        table.note(what, "allocates nothing");
        return;
    }
    const uint64_t stride = strideOf(all, atMost);
    Tally tally;
    std::optional<Session> session;
    for (uint64_t nth = 1; nth <= all; nth += stride) {
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
    showFired(what, tally, all, stride, table);
    show(what, tally, table);
}

} // namespace

void planMemory(const Options& options, Table& table) {
    if (V2X_SANITIZED) {
        table.notRun("all of it", "sanitizer build");
        return;
    }
    const Start start = countStarts();
    const uint64_t tries = options.times;
    tryStarts("libraries before main", start, 1, start.beforeMain, tries * 2, table);
    for (const Message& message : MESSAGES) {
        const Counted counted = countMessage(message);
        tryMessage(message, FAULT_ALLOCATION_OWN, counted.own, tries * 5, table);
        tryMessage(message, FAULT_ALLOCATION, counted.all, tries / 4 + 1, table);
    }
    tryStarts("start-up", start, start.beforeMain + 1, start.all, tries * 30, table);
}
