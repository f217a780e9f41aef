// The n-th allocation fails: over a start-up, and over messages of each kind.
#include <algorithm>
#include <cerrno>
#include <gtest/gtest.h>
#include <optional>

#include "endings.h"
#include "messages.h"
#include "paths.h"
#include "plans.h"
#include "watch.h"

namespace {

enum Extent { ONE, FROM_THERE_ON };

void armOne(const Faults& faults, fault_call call, uint64_t nth, Extent extent = ONE) {
    arm(faults, call, ENOMEM, nth, extent == ONE ? nth : FOR_GOOD);
}

// Until it says so, or is gone.
bool isReady(Unit& unit) {
    std::string told;
    eventually([&] { return (told = unit.notify.receive(20)) == "READY=1" || unit.daemon->wait(0) != -1; });
    return told == "READY=1";
}

constexpr int COUNTED = 5; // starts, and stops, in which nothing fails

// A start in which nothing fails, by the allocations that every one makes: some make a few more.
struct Start {
    uint64_t beforeMain = 0;
    uint64_t all = UINT64_MAX;
    Parts whole;
};

Start countStarts() {
    constexpr int SETTLED_MS = 500;
    Start least;
    for (int i = 0; i < COUNTED; i++) {
        Unit unit;
        const Faults faults(unit.folder);
        unit.startAndWaitReady({}, faults.environment("v2x_soak_faults"));
        least.all = std::min<uint64_t>(least.all, faults->counts[FAULT_ALLOCATION]);
        least.beforeMain = faults->beforeMain;
        std::this_thread::sleep_for(std::chrono::milliseconds(SETTLED_MS));
        least.whole = partsOf(unit);
    }
    return least;
}

// One start-up whose n-th allocation fails, or all from there on until it says that it is ready.
void tryStart(const Start& start, uint64_t nth, Extent extent, Tally& tally) {
    constexpr int LATE_MS = 3000;
    Bench bench;
    armOne(bench.faults, FAULT_ALLOCATION, nth, extent);
    bench.unit.start({}, bench.faults.environment("v2x_soak_faults"));
    const bool ready = isReady(bench.unit);
    // The last ones may be made just after it said so.
    eventually([&] { return bench.faults->fired > 0 || bench.unit.daemon->wait(0) != -1; }, LATE_MS);
    bench.faults->call = FAULT_NONE;
    if (!ready) {
        enterEnd(bench, nth, tally);
    } else if (isAtWork(bench, nth, tally)) {
        enterRunning(bench, start.whole, nth, tally);
    }
    tally.tried += bench.faults->fired > 0 ? 1 : 0;
}

// After which allocation the next is made to fail: at most so many of all.
uint64_t strideOf(uint64_t all, uint64_t atMost) {
    return (all + atMost - 1) / atMost;
}

// From the first to the last, at most so many tries.
void tryStarts(const std::string& what, const Start& start, uint64_t first, uint64_t last, Extent extent,
               uint64_t atMost, Table& table) {
    if (last < first) {
        table.atLeast(what + ": allocations counted", 0, 1);
        return;
    }
    const uint64_t all = last - first + 1;
    const uint64_t stride = strideOf(all, atMost);
    Tally tally{.isMadeOrTakenDown = true};
    for (uint64_t nth = first; nth <= last; nth += stride) {
        tryStart(start, nth, extent, tally);
    }
    show(what, tally, all, stride, table);
}

// Stops whose n-th allocation fails, or all from there on.
void tryStops(const std::string& what, Extent extent, uint64_t atMost, Table& table) {
    constexpr int END_MS = 10000;
    const auto stop = [](Bench& bench, const std::function<void()>& prepare) {
        bench.unit.startAndWaitReady({}, bench.faults.environment("v2x_soak_faults"));
        EXPECT_TRUE(bench.work.reportArrives());
        prepare();
        bench.unit.daemon->signal(SIGTERM);
        return bench.unit.daemon->wait(END_MS);
    };
    uint64_t all = UINT64_MAX; // those that every stop makes: some make a few more
    for (int i = 0; i < COUNTED; i++) {
        Bench bench;
        uint64_t before = 0;
        EXPECT_EQ(stop(bench, [&] { before = bench.faults->counts[FAULT_ALLOCATION]; }), 0);
        all = std::min<uint64_t>(all, bench.faults->counts[FAULT_ALLOCATION] - before);
    }
    if (all == 0) {
        table.atLeast(what + ": allocations counted", 0, 1);
        return;
    }
    const uint64_t stride = strideOf(all, atMost);
    Tally tally{.isMadeOrTakenDown = true};
    for (uint64_t nth = 1; nth <= all; nth += stride) {
        Bench bench;
        if (stop(bench, [&] { armOne(bench.faults, FAULT_ALLOCATION, nth, extent); }) == 0) {
            tally.endings["ended with status 0"]++;
        } else {
            enterEnd(bench, nth, tally);
        }
        tally.tried += bench.faults->fired > 0 ? 1 : 0;
    }
    show(what, tally, all, stride, table);
}

// A kind of message: sent here, or by the cloud's simulator with these arguments, or asked for by the daemon. The
// latter come by themselves, so many until now.
struct Message {
    const char* name;
    bool (*arrives)(const Unit& unit, Work& work); // one more comes through
    void (*send)(const Unit& unit, Work& work) = nullptr;
    std::vector<std::string> cloud{};
    uint64_t (*passed)(const Unit& unit, const Work& work) = nullptr;
};

uint64_t documentsDown(const Unit& /*unit*/, const Work& work) {
    return work.documents();
}

constexpr int STATUS_MS = 20; // between two of the cloud's

uint64_t statuses(const Unit& /*unit*/, const Work& /*work*/) {
    static const Stopwatch watch;
    return static_cast<uint64_t>(watch.ms() / STATUS_MS);
}

bool reportArrives(const Unit& /*unit*/, Work& work) {
    return work.reportArrives();
}
bool frameArrives(const Unit& /*unit*/, Work& work) {
    return work.frameArrives();
}
bool answerArrives(const Unit& unit, Work& /*work*/) {
    return eventually([&] { return logToolAnswered(unit); });
}
bool replyArrives(const Unit& /*unit*/, Work& work) {
    return work.replyArrives();
}
bool documentArrives(const Unit& /*unit*/, Work& work) {
    return work.documentArrives();
}

// The status shows nowhere at once: the documents beside it come on the same thread.
const Message MESSAGES[] = {
    {"report", reportArrives, [](const Unit&, Work& work) { work.sendReport(); }},
    {"frame", frameArrives, [](const Unit&, Work& work) { work.sendFrame(); }},
    {"log request", answerArrives,
     [](const Unit& unit, Work&) { unit.controller.sendTo(unit.logToolPort, LOG_REQUEST); }},
    {"reply",
     replyArrives,
     nullptr,
     {"--rate", "0", "--status", "none"},
     [](const Unit& unit, const Work&) { return documentsUp(unit); }},
    {"document", documentArrives, nullptr, {"--rate", "100", "--phases", "2", "--status", "none"}, documentsDown},
    {"document in pieces",
     documentArrives,
     nullptr,
     {"--rate", "100", "--phases", "24", "--status", "none"},
     documentsDown},
    {"cloud status", documentArrives, nullptr, {"--rate", "2", "--phases", "2", "--status-interval", "0.02"}, statuses},
};

// A daemon at work.
struct Session : Bench {
    static constexpr int FOUND_MS = 20000;
    explicit Session(const Message& message) {
        unit.startAndWaitReady({}, faults.environment("v2x_soak_faults"));
        if (!message.cloud.empty()) {
            work.startCloud(message.cloud);
            EXPECT_TRUE(work.replyArrives(FOUND_MS));
        }
        EXPECT_TRUE(message.arrives(unit, work)) << message.name;
    }
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
    const uint64_t own = session.faults->counts[FAULT_ALLOCATION_OWN];
    const uint64_t all = session.faults->counts[FAULT_ALLOCATION];
    uint64_t messages = SENT;
    if (message.passed != nullptr) {
        const uint64_t before = message.passed(session.unit, session.work);
        std::this_thread::sleep_for(LOOK);
        messages = message.passed(session.unit, session.work) - before;
    } else {
        for (uint64_t i = 0; i < SENT; i++) {
            message.send(session.unit, session.work);
            std::this_thread::sleep_for(PAUSE);
        }
        std::this_thread::sleep_for(LAST);
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
                message.send(session.unit, session.work);
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

// Of the allocations while such a message passes, at most so many. A daemon that does not work after one is replaced.
void tryMessage(const Message& message, fault_call call, uint64_t all, uint64_t atMost, Table& table) {
    const std::string what =
        std::string(message.name) + (call == FAULT_ALLOCATION_OWN ? ", own threads" : ", all threads");
    if (all == 0) {
        table.atLeast(what + ": allocations counted", 0, 1);
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
        if (!isAtWork(*session, nth, tally)) {
            session.reset();
        } else if (!message.arrives(session->unit, session->work)) {
            tally.fault(nth, "none comes through any more");
            session.reset();
        } else {
            tally.endings["runs on"]++;
        }
    }
    if (session && !message.cloud.empty() && !session->work.replyArrives()) {
        tally.faults.emplace_back("at the end: no reply");
    }
    show(what, tally, all, stride, table);
}

} // namespace

void planMemory(const Options& options, Table& table) {
    const Start start = countStarts();
    const uint64_t tries = options.times;
    tryStarts("libraries before main", start, 1, start.beforeMain, ONE, tries * 2, table);
    tryStops("stop", ONE, tries * 3, table);
    tryStops("stop, from there on", FROM_THERE_ON, tries, table);
    for (const Message& message : MESSAGES) {
        const Counted counted = countMessage(message);
        tryMessage(message, FAULT_ALLOCATION_OWN, counted.own, tries * 5, table);
        tryMessage(message, FAULT_ALLOCATION, counted.all, tries / 4 + 1, table);
    }
    tryStarts("start-up", start, start.beforeMain + 1, start.all, ONE, tries * 30, table);
    tryStarts("start-up, from there on", start, start.beforeMain + 1, start.all, FROM_THERE_ON, tries * 3, table);
}
