// Each peer killed, stopped and continued under traffic on all paths.
#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdlib>
#include <functional>
#include <random>
#include <thread>

#include "paths.h"
#include "plans.h"
#include "watch.h"

namespace {

using namespace std::chrono_literals;

constexpr int BACK_MS = 10000;
constexpr auto DRAIN = 1500ms;   // a frame waits up to 0.5 s
constexpr auto UP_DRAIN = 700ms; // a reply waits up to 0.3 s
constexpr auto LEASE_OVER = 4s;  // of a DDS peer: 3 s
constexpr auto KILLED = 100ms;
constexpr int STOPPED_MS = 100; // and up to twice as much more

// Of the cloud a document whose sender ends at that moment.
constexpr Records MAY_LOSE = {0, 0, 1};

// One peer's faults: how it is started, and counts that all grow when it works.
struct Victim {
    std::string role;
    std::function<void()> start;
    std::function<std::vector<uint64_t>()> progress;
    std::function<void()> whileThere = [] {}; // between a fault and the next
};

// Other participants of the domain, which come and go: they keep discovery under way, in which a peer that stands still
// is lost most easily.
class PassersBy {
public:
    explicit PassersBy(const Unit& unit) : m_thread([this, folder = unit.folder.path()] { run(folder); }) {}
    ~PassersBy() {
        m_isOver = true;
        m_thread.join();
    }
    PassersBy(const PassersBy&) = delete;
    PassersBy& operator=(const PassersBy&) = delete;

private:
    void run(const std::string& folder) {
        constexpr int STAY_MS = 700;
        const std::string base = folder + "/passer";
        for (int i = 0; !m_isOver; i++) {
            Process passer({V2X_BIN "/v2x_spat_sim", "cloud", "--device", "passer", "--quiet", "--rate", "0"}, {},
                           base + ".out", base + ".err");
            passer.wait(STAY_MS);
            passer.signal(i % 2 == 0 ? SIGTERM : SIGKILL);
            passer.wait(BACK_MS);
        }
    }

    std::atomic<bool> m_isOver{false};
    std::thread m_thread;
};

// Whether each count grows again.
bool isBack(const Victim& victim, const std::vector<uint64_t>& before) {
    return eventually(
        [&] {
            const std::vector<uint64_t> now = victim.progress();
            return std::equal(now.begin(), now.end(), before.begin(), std::greater());
        },
        BACK_MS);
}

void faultsOf(Unit& unit, const Victim& victim, const Options& options, Table& table) {
    std::mt19937 random(options.seed);
    uint32_t stopped = 0;
    uint32_t back = 0;
    for (uint32_t round = 0; round < 2 * options.times; round++) {
        if (round % 2 == 0) {
            unit.endSimulator(victim.role, SIGKILL);
            std::this_thread::sleep_for(KILLED);
            victim.start();
            back += isBack(victim, victim.progress()) ? 1 : 0;
        } else {
            const bool isLong = victim.role == ROLES[CLOUD];
            const pid_t pid = unit.simulatorPid(victim.role);
            kill(pid, SIGSTOP);
            std::this_thread::sleep_for(
                isLong ? LEASE_OVER : std::chrono::milliseconds(STOPPED_MS + random() % (2 * STOPPED_MS + 1)));
            const std::vector<uint64_t> before = victim.progress();
            const std::string stat = readFile("/proc/" + std::to_string(pid) + "/stat");
            stopped += stat.find(") T ") != std::string::npos ? 1 : 0;
            kill(pid, SIGCONT);
            back += isBack(victim, before) ? 1 : 0;
        }
        victim.whileThere();
    }
    table.equal(victim.role + ": stopped", stopped, options.times, "times");
    table.equal(victim.role + ": back after each kill and stop", back, int64_t{2} * options.times, "times");
}

void checkNothingLost(const std::string& what, uint64_t sent, uint64_t arrived, uint64_t mayLose, Table& table) {
    table.check(what, sent > 0 && arrived <= sent && arrived + mayLose >= sent,
                std::to_string(arrived) + " of " + std::to_string(sent), mayLose == 0 ? "all" : "all but 1 at the end");
}

void checkRecords(const std::string& who, const std::string& where, const Records& sent, const Records& arrived,
                  Source but, Table& table) {
    const std::string what = who + " away: records of the ";
    for (const Source source : {LEARNER, CONTROLLER, CLOUD}) {
        if (source != but) {
            checkNothingLost(std::string(what).append(ROLES[source]).append(where), sent[source], arrived[source],
                             MAY_LOSE[source], table);
        }
    }
}

// Replies of the application, and documents of them in the cloud, from one moment at which none is under way to
// another.
class Up {
public:
    Up(const Unit& unit, StackDesk& desk) : m_unit(unit), m_desk(desk) {}
    void begin() {
        eventually([&] { return documentsUp(m_unit) > 0; }, BACK_MS);
        pause();
        m_repliesBefore = m_desk.replies();
        m_documentsBefore = documentsUp(m_unit);
        m_desk.answer(true);
    }
    void end() {
        eventually([&] { return documentsUp(m_unit) > m_documentsBefore; }, BACK_MS);
        pause();
        m_replies += m_desk.replies() - m_repliesBefore;
        m_documents += documentsUp(m_unit) - m_documentsBefore;
        m_desk.answer(true);
    }
    void check(const std::string& what, Table& table) const {
        checkNothingLost(what, m_replies, m_documents, 0, table);
    }

private:
    void pause() {
        m_desk.answer(false);
        std::this_thread::sleep_for(UP_DRAIN);
    }

    const Unit& m_unit;
    StackDesk& m_desk;
    uint64_t m_repliesBefore = 0;
    uint64_t m_documentsBefore = 0;
    uint64_t m_replies = 0;
    uint64_t m_documents = 0;
};

// One source away; the other paths are looked at from the stack application's place. Documents go up as long as the
// cloud is there.
void sourceAway(Unit& unit, StackDesk& desk, Source away, const Options& options, Table& table) {
    const std::string role = ROLES[away];
    const Records before = desk.records();
    startSources(unit);
    Up up(unit, desk);
    Victim victim = {role, [&] { startSource(unit, away, RATES[away]); }, [&] { return std::vector{desk.of(away)}; }};
    if (away == CLOUD) {
        victim.progress = [&] { return std::vector{desk.of(CLOUD), documentsUp(unit)}; };
        victim.whileThere = [&] {
            up.begin();
            up.end();
        };
        eventually([&] { return documentsUp(unit) > 0; }, BACK_MS);
        faultsOf(unit, victim, options, table);
    } else {
        up.begin();
        faultsOf(unit, victim, options, table);
        up.end();
    }
    up.check(away == CLOUD ? "cloud: documents up while it was there" : role + " away: documents up", table);
    const Records sent = endSources(unit);
    std::this_thread::sleep_for(DRAIN);
    const Records now = desk.records();
    checkRecords(role, "", sent, {now[0] - before[0], now[1] - before[1], now[2] - before[2]}, away, table);
}

// Ends the daemon: every reply of its life is a document, and every document is in its counts.
void accountForDocuments(Unit& unit, StackDesk& desk, const Stopwatch& life, Table& table) {
    constexpr int64_t STATUS_MS = 5000; // a status record goes to the cloud, too
    desk.answer(false);
    std::this_thread::sleep_for(DRAIN);
    const int64_t statuses = life.ms() / STATUS_MS;
    checkEnds(unit, "cloud away: ends when asked to", table);
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
    table.note("cloud away: the domain joined anew", std::to_string(count("dds.joined_anew")) + " times");
}

// The stack application away: what the daemon sends it is looked at on the wire.
void stackAway(Unit& unit, const Options& options, Table& table) {
    const Stopwatch watch;
    const Wire wire(unit.stack.port());
    const auto startStack = [&] {
        unit.startSimulator("stack", {"--listen", std::to_string(unit.stack.port()), "--json"});
    };
    unit.stack.release();
    startStack();
    startSources(unit);
    eventually([&] { return documentsUp(unit) > 0; }, BACK_MS);
    const auto progress = [&] {
        const std::string shown = unit.simulatorOutput("stack");
        return std::vector<uint64_t>{times(shown, "\"phaseNum\":3,"), times(shown, "\"phaseNum\":20,"),
                                     times(shown, "\"node\":77,"), documentsUp(unit)};
    };
    faultsOf(unit, {"stack", startStack, progress}, options, table);
    const Records sent = endSources(unit);
    std::this_thread::sleep_for(DRAIN);
    unit.endStackSimulator();
    const int64_t seconds = watch.ms() / 1000;
    table.atLeast("stack away: heartbeats at the learner in " + std::to_string(seconds) + " s",
                  static_cast<int64_t>(heartbeats(unit)), std::max<int64_t>(1, seconds * 8 / 10 - 3));
    if (!wire.fault().empty()) {
        table.notRun("stack away: records on the wire", wire.fault());
    } else {
        checkRecords("stack", " on the wire", sent, wire.records(), SOURCES, table);
    }
}

// Of a daemon at rest, after all its paths have worked.
Sample lookAtRest(Unit& unit, const StackDesk& desk, const std::string& what, Table& table) {
    checkPaths(unit, desk, what, table);
    std::this_thread::sleep_for(LEASE_OVER);
    return sample(unit.daemon->pid(), unit.logPath);
}

void checkAfter(Unit& unit, const StackDesk& desk, const Sample& before, const std::string& who, Table& table) {
    const Sample after = lookAtRest(unit, desk, who + ": all paths after", table);
    checkLives(unit, who, table);
    table.atMost(who + ": threads, " + std::to_string(before.threads) + " before", after.threads, before.threads);
    table.atMost(who + ": descriptors, " + std::to_string(before.descriptors) + " before", after.descriptors,
                 before.descriptors);
}

void devicesAndStack(const Options& options, Table& table) {
    const std::string who = "devices, stack";
    Site unit;
    unit.startAndWaitReady();
    std::optional<StackDesk> desk(unit.stack);
    const Sample before = lookAtRest(unit, *desk, who + ": all paths before", table);
    sourceAway(unit, *desk, LEARNER, options, table);
    sourceAway(unit, *desk, CONTROLLER, options, table);
    desk.reset();
    stackAway(unit, options, table);
    const UdpPeer stack(unit.stack.port());
    table.check(who + ": the stack's port again", stack.isBound(), stack.isBound() ? "free" : "taken", "free");
    checkAfter(unit, StackDesk(stack), before, who, table);
}

// Another daemon, since every reply of its life is counted.
void cloud(const Options& options, Table& table) {
    Site unit;
    StackDesk desk(unit.stack);
    unit.startAndWaitReady();
    const Stopwatch life;
    const Sample before = lookAtRest(unit, desk, "cloud: all paths before", table);
    {
        const PassersBy passersBy(unit);
        sourceAway(unit, desk, CLOUD, options, table);
    }
    checkAfter(unit, desk, before, "cloud", table);
    accountForDocuments(unit, desk, life, table);
}

} // namespace

void planPeers(const Options& options, Table& table) {
    devicesAndStack(options, table);
    cloud(options, table);
}
