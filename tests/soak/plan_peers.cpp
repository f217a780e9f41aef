// Each peer killed, stopped and continued under traffic on all paths.
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <random>

#include "paths.h"
#include "plans.h"
#include "watch.h"

namespace {

using namespace std::chrono_literals;

constexpr int BACK_MS = 10000;
constexpr auto DRAIN = 1500ms;  // a reply waits up to 0.3 s, a frame 0.5 s
constexpr auto LEASE_OVER = 4s; // of a DDS peer: 3 s
constexpr auto KILLED = 100ms;
constexpr int STOPPED_MS = 100;    // and up to twice as much more
constexpr uint64_t ON_THE_WAY = 1; // a document whose sender ends at that moment

// The peers but the stack application; each row is a path that is to lose nothing while another peer is away.
const struct Row {
    const char* role;
    Source source;
    void (*start)(Unit& unit, double rate);
    double rate;
    const char* sent; // in its summary
    uint64_t mayLose;
} ROWS[] = {{"learner", LEARNER, startLearner, LEARNER_RATE, "sent", 0},
            {"controller", CONTROLLER, startController, CONTROLLER_RATE, "sent", 0},
            {"cloud", CLOUD, startCloud, CLOUD_RATE, "downGood", ON_THE_WAY}};

// One peer's faults: how it is started, and whether it works again since the fault before.
struct Victim {
    const char* role;
    std::function<void()> start;
    std::function<void()> mark;
    std::function<bool()> isBack;
    std::function<void()> whileThere = [] {};
};

struct Faults {
    uint32_t kills = 0;
    uint32_t stops = 0;
    uint32_t back = 0;
};

bool isStopped(pid_t pid) {
    const std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
    return stat.find(") T ") != std::string::npos;
}

void breakAndMend(Unit& unit, const Victim& victim, uint32_t round, std::mt19937& random, Faults& faults) {
    if (round % 2 == 0) {
        unit.endSimulator(victim.role, SIGKILL);
        std::this_thread::sleep_for(KILLED);
        victim.mark();
        victim.start();
        faults.kills++;
    } else {
        const bool isLong = round == 1 && std::string(victim.role) == "cloud";
        const pid_t pid = unit.simulatorPid(victim.role);
        kill(pid, SIGSTOP);
        std::this_thread::sleep_for(isLong ? LEASE_OVER
                                           : std::chrono::milliseconds(STOPPED_MS + random() % (2 * STOPPED_MS + 1)));
        victim.mark();
        faults.stops += isStopped(pid) ? 1 : 0;
        kill(pid, SIGCONT);
    }
    faults.back += eventually(victim.isBack, BACK_MS) ? 1 : 0;
    victim.whileThere();
}

void faultsOf(Unit& unit, const Victim& victim, const Options& options, Table& table) {
    std::mt19937 random(options.seed);
    Faults faults;
    for (uint32_t round = 0; round < 2 * options.times; round++) {
        breakAndMend(unit, victim, round, random, faults);
    }
    const std::string role = victim.role;
    table.equal(role + ": killed", faults.kills, options.times, "times");
    table.equal(role + ": stopped", faults.stops, options.times, "times");
    table.equal(role + ": back after it", faults.back, int64_t{2} * options.times, "times");
}

void nothingLost(const std::string& what, uint64_t sent, uint64_t arrived, uint64_t mayLose, Table& table) {
    table.check(what, sent > 0 && arrived <= sent && arrived + mayLose >= sent,
                std::to_string(arrived) + " of " + std::to_string(sent), mayLose == 0 ? "all" : "all but 1 at the end");
}

// Replies of the application, and documents of them in the cloud.
class Up {
public:
    Up(const Unit& unit, StackDesk& desk) : m_unit(unit), m_desk(desk) {}
    void begin() {
        eventually([&] { return documentsUp(m_unit) > 0; }, BACK_MS);
        pause();
        m_replies = m_desk.replies();
        m_documents = documentsUp(m_unit);
        m_desk.answer(true);
    }
    void end() {
        eventually([&] { return documents() > 0; }, BACK_MS); // the faults may have been over before the first
        pause();
    }
    uint64_t replies() const { return m_desk.replies() - m_replies; }
    uint64_t documents() const { return documentsUp(m_unit) - m_documents; }

private:
    void pause() {
        m_desk.answer(false);
        std::this_thread::sleep_for(DRAIN);
    }

    const Unit& m_unit;
    StackDesk& m_desk;
    uint64_t m_replies = 0;
    uint64_t m_documents = 0;
};

// Documents up while the cloud is there, between a fault and the next.
class There {
public:
    There(const Unit& unit, const StackDesk& desk) : m_unit(unit), m_desk(desk) {}
    // From a moment at which no document is under way to another one, at least a reply later.
    void look() {
        waitQuiet();
        const uint64_t replies = m_desk.replies();
        const uint64_t documents = documentsUp(m_unit);
        eventually([&] { return m_desk.replies() > replies; }, BACK_MS);
        waitQuiet();
        m_replies += m_desk.replies() - replies;
        m_documents += documentsUp(m_unit) - documents;
    }
    uint64_t replies() const { return m_replies; }
    uint64_t documents() const { return m_documents; }

private:
    void waitQuiet() const {
        eventually(
            [&] {
                const auto age = std::chrono::steady_clock::now() - m_desk.repliedAt();
                return age > 450ms && age < 580ms;
            },
            BACK_MS);
    }

    const Unit& m_unit;
    const StackDesk& m_desk;
    uint64_t m_replies = 0;
    uint64_t m_documents = 0;
};

// Ends the simulators; the other paths are looked at from the stack application's place.
void othersLostNothing(Unit& unit, const StackDesk& desk, const Row& away, const Records& before, Table& table) {
    std::map<std::string, std::string> summaries;
    for (const Row& row : ROWS) {
        summaries[row.role] = unit.endSimulator(row.role);
    }
    std::this_thread::sleep_for(DRAIN);
    for (const Row& row : ROWS) {
        if (row.source != away.source) {
            nothingLost(std::string(away.role) + " away: records of the " + row.role,
                        counted(summaries[row.role], row.sent), desk.of(row.source) - before[row.source], row.mayLose,
                        table);
        }
    }
}

void deviceAway(Unit& unit, StackDesk& desk, const Row& away, const Options& options, Table& table) {
    const Records before = desk.records();
    for (const Row& row : ROWS) {
        row.start(unit, row.rate);
    }
    Up up(unit, desk);
    up.begin();
    uint64_t records = 0;
    faultsOf(unit,
             {away.role, [&] { away.start(unit, away.rate); }, [&] { records = desk.of(away.source); },
              [&] { return desk.of(away.source) > records; }},
             options, table);
    up.end();
    nothingLost(std::string(away.role) + " away: documents up", up.replies(), up.documents(), 0, table);
    othersLostNothing(unit, desk, away, before, table);
    desk.answer(true);
}

void cloudAway(Unit& unit, const StackDesk& desk, const Options& options, Table& table) {
    const Row& away = ROWS[CLOUD];
    const Records before = desk.records();
    for (const Row& row : ROWS) {
        row.start(unit, row.rate);
    }
    eventually([&] { return documentsUp(unit) > 0; }, BACK_MS);
    There there(unit, desk);
    uint64_t records = 0;
    uint64_t documents = 0;
    faultsOf(unit,
             {away.role,
              [&] {
                  away.start(unit, away.rate);
                  documents = 0;
              },
              [&] {
                  records = desk.of(CLOUD);
                  documents = documentsUp(unit);
              },
              [&] { return desk.of(CLOUD) > records && documentsUp(unit) > documents; }, [&] { there.look(); }},
             options, table);
    nothingLost("cloud: documents up while it was there", there.replies(), there.documents(), 0, table);
    othersLostNothing(unit, desk, away, before, table);
}

// Ends the daemon: every reply of its life is a document, and every document is in its counts.
void accountForDocuments(Unit& unit, StackDesk& desk, std::chrono::steady_clock::time_point start, Table& table) {
    constexpr int64_t STATUS_S = 5; // a status record goes to the cloud, too
    desk.answer(false);
    std::this_thread::sleep_for(DRAIN);
    unit.daemon->signal(SIGTERM);
    const auto life = std::chrono::steady_clock::now() - start;
    const int64_t statuses = std::chrono::floor<std::chrono::seconds>(life).count() / STATUS_S;
    table.equal("cloud away: status of the daemon at SIGTERM", unit.daemon->wait(20000), 0);
    const Counts seen = counts(unit.logPath);
    const auto count = [&](const char* name) { return static_cast<int64_t>(of(seen, name)); };
    const auto replies = static_cast<int64_t>(desk.replies());
    table.equal("cloud away: replies made a document", count("up.documents"), replies);
    const int64_t handled = count("cloud.sent") + count("cloud.unmatched");
    table.check("cloud away: documents and status counted as sent or unmatched",
                std::abs(handled - replies - statuses) <= 1,
                std::to_string(count("cloud.sent")) + " + " + std::to_string(count("cloud.unmatched")),
                std::to_string(replies) + " + " + std::to_string(statuses) + ", give or take a status");
    table.equal("cloud away: not sent for another reason", count("cloud.not_sent"), 0);
}

// The stack application away: what the daemon sends it is looked at on the wire.
void stackAway(Unit& unit, const Options& options, Table& table) {
    const auto begin = std::chrono::steady_clock::now();
    const Wire wire(unit.stack.port());
    const auto startStack = [&] {
        unit.startSimulator("stack", {"--listen", std::to_string(unit.stack.port()), "--json"});
    };
    unit.stack.release();
    startStack();
    for (const Row& row : ROWS) {
        row.start(unit, row.rate);
    }
    eventually([&] { return documentsUp(unit) > 0; }, BACK_MS);
    size_t shown = 0;
    uint64_t documents = 0;
    const auto has = [&](const char* what) {
        return unit.simulatorOutput("stack").find(what, shown) != std::string::npos;
    };
    const Victim victim = {"stack",
                           [&] {
                               startStack();
                               shown = 0;
                           },
                           [&] {
                               shown = unit.simulatorOutput("stack").size();
                               documents = documentsUp(unit);
                           },
                           [&] {
                               return has("\"phaseNum\":3,") && has("\"phaseNum\":20,") && has("\"node\":77,") &&
                                      documentsUp(unit) > documents;
                           }};
    faultsOf(unit, victim, options, table);
    std::map<std::string, std::string> summaries;
    for (const Row& row : ROWS) {
        summaries[row.role] = unit.endSimulator(row.role);
    }
    std::this_thread::sleep_for(DRAIN);
    unit.endStackSimulator();
    const int64_t seconds = std::chrono::floor<std::chrono::seconds>(std::chrono::steady_clock::now() - begin).count();
    table.atLeast("stack away: heartbeats at the learner in " + std::to_string(seconds) + " s",
                  static_cast<int64_t>(counted(summaries["learner"], "heartbeats")),
                  std::max<int64_t>(1, seconds * 8 / 10 - 3));
    if (!wire.fault().empty()) {
        table.notRun("stack away: records on the wire", wire.fault());
        return;
    }
    for (const Row& row : ROWS) {
        nothingLost(std::string("stack away: records of the ") + row.role + " on the wire",
                    counted(summaries[row.role], row.sent), wire.of(row.source), row.mayLose, table);
    }
}

// Of a daemon at rest, after all its paths have worked.
Sample lookBefore(Unit& unit, const StackDesk& desk, const std::string& who, Table& table) {
    const std::string working = pathsAtWork(unit, desk, ALL_PATHS);
    table.check(who + ": all paths before", working == ALL_PATHS, working, ALL_PATHS);
    std::this_thread::sleep_for(LEASE_OVER);
    return sample(unit.daemon->pid(), unit.logPath);
}

void lookAfter(Unit& unit, const StackDesk& desk, const Sample& before, const std::string& who, Table& table) {
    const std::string working = pathsAtWork(unit, desk, ALL_PATHS);
    table.check(who + ": all paths after", working == ALL_PATHS, working, ALL_PATHS);
    std::this_thread::sleep_for(LEASE_OVER);
    const Sample after = sample(unit.daemon->pid(), unit.logPath);
    table.check(who + ": the daemon lives", unit.daemon->wait(0) == -1 && after.threads > 0,
                "pid " + std::to_string(unit.daemon->pid()), "the same pid");
    table.atMost(who + ": threads, " + std::to_string(before.threads) + " before", after.threads, before.threads);
    table.atMost(who + ": descriptors, " + std::to_string(before.descriptors) + " before", after.descriptors,
                 before.descriptors);
}

void devicesAndStack(const Options& options, Table& table) {
    constexpr const char* WHO = "devices, stack";
    Unit unit;
    unit.corrections = "SpatDown = true; ReplyItems = true;";
    unit.startAndWaitReady();
    Sample before;
    {
        StackDesk desk(unit.stack);
        before = lookBefore(unit, desk, WHO, table);
        deviceAway(unit, desk, ROWS[LEARNER], options, table);
        deviceAway(unit, desk, ROWS[CONTROLLER], options, table);
    }
    stackAway(unit, options, table);
    const Peer stack(unit.stack.port());
    const StackDesk desk(stack);
    lookAfter(unit, desk, before, WHO, table);
}

// Another daemon, since every reply of its life is counted.
void cloud(const Options& options, Table& table) {
    Unit unit;
    unit.corrections = "SpatDown = true; ReplyItems = true;";
    StackDesk desk(unit.stack);
    unit.startAndWaitReady();
    const auto start = std::chrono::steady_clock::now();
    const Sample before = lookBefore(unit, desk, "cloud", table);
    cloudAway(unit, desk, options, table);
    lookAfter(unit, desk, before, "cloud", table);
    accountForDocuments(unit, desk, start, table);
}

} // namespace

void planPeers(const Options& options, Table& table) {
    devicesAndStack(options, table);
    cloud(options, table);
}
