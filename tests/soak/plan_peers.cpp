// DDS peers and the daemon that stall, and peers that are killed. Stalls: both directions work again within two
// seconds, though other participants come and go. Kills: the other paths lose nothing meanwhile.
#include <algorithm>
#include <csignal>
#include <functional>
#include <thread>

#include "dds/dds_test.h"
#include "plans.h"
#include "traffic.h"
#include "watch.h"

namespace {

using namespace std::chrono_literals;

constexpr int BACK_MS = 10000;
constexpr auto STALLS = {4s, 9s};
constexpr auto STALE = 500ms; // after it, what was sent during the stall has arrived
constexpr auto LIMIT = 2000ms;
constexpr auto DRAIN = 1500ms; // a frame waits up to 0.5 s
constexpr double REPORTS = 20;
constexpr double FRAMES = 10;
constexpr double DOCUMENTS = 10;

struct Site : Unit {
    Site() { corrections = "SpatDown = true; ReplyItems = true;"; }
};

using Progress = std::function<std::vector<uint64_t>()>; // counts that grow while the paths work

bool hasGrown(const std::vector<uint64_t>& now, const std::vector<uint64_t>& before) {
    return std::equal(now.begin(), now.end(), before.begin(), std::greater());
}

bool growsSoon(const Progress& progress) {
    return eventually([&, before = progress()] { return hasGrown(progress(), before); }, BACK_MS);
}

// Participants that join and leave the domain every 0.7 s, half of them without a good-bye: discovery never rests.
void passBy(const std::string& base, const std::stop_token& stop) {
    for (int i = 0; !stop.stop_requested(); i++) {
        Process passer({V2X_BIN "/v2x_spat_sim", "cloud", "--device", "passer", "--quiet", "--rate", "0"}, {},
                       base + ".out", base + ".err");
        passer.wait(700);
        passer.signal(i % 2 == 0 ? SIGTERM : SIGKILL);
        passer.wait(BACK_MS);
    }
}

// Stops and continues a process; whether all counts grow between the end of stale input and the limit.
bool survivesStall(Process& process, std::chrono::seconds length, const Progress& progress) {
    const bool isStopped = process.stop();
    std::this_thread::sleep_for(length);
    process.signal(SIGCONT);
    std::this_thread::sleep_for(STALE);
    const std::vector<uint64_t> before = progress();
    std::this_thread::sleep_for(LIMIT - STALE);
    return hasGrown(progress(), before) && isStopped;
}

void stalls(const Options& options, Report& report) {
    Site unit;
    const StackDesk desk(unit.stack);
    unit.startAndWaitReady();
    startSource(unit, CLOUD, DOCUMENTS);
    const std::string base = unit.folder.path() + "/cyclone";
    const std::string document = base + ".json";
    writeFile(document, R"({"intersections":[{"intersectionId":{"region":1,"id":)" + std::to_string(CYCLONE_NODE) +
                            R"(},"status":0,"phases":[{"phaseId":1,"phaseStates":[{"light":3}]}]}]})");
    const std::string topics = "rsu/" + unit.device + "/spat/";
    Process cyclone({V2X_BIN "/cyclone_peer", "200", topics + "up", topics + "down", "100", document},
                    {Peer::CYCLONE_ON_LOOPBACK}, base + ".out", base + ".err");
    const Progress ofCloud = [&] { return std::vector{desk.of(CLOUD), documentsUp(unit)}; };
    const Progress ofCyclone = [&] {
        return std::vector{desk.of(CYCLONE), static_cast<uint64_t>(occurrences(readFile(base + ".out"), "\n"))};
    };
    const Progress ofBoth = [&] {
        std::vector<uint64_t> all = ofCloud();
        all.insert(all.end(), {ofCyclone()[0], ofCyclone()[1]});
        return all;
    };
    const std::jthread passersBy([&](const std::stop_token& stop) { passBy(unit.folder.path() + "/passer", stop); });
    report.check("both directions, both peers, before the first stall", growsSoon(ofBoth), "", "work");
    const struct {
        const char* name;
        Process& process;
        const Progress& progress;
    } rows[] = {{"daemon", *unit.daemon, ofBoth},
                {"Fast DDS peer", unit.simulator("cloud"), ofCloud},
                {"Cyclone peer", cyclone, ofCyclone}};
    for (const auto& row : rows) {
        for (const std::chrono::seconds length : STALLS) {
            uint32_t back = 0;
            for (uint32_t i = 0; i < options.times; i++) {
                back += survivesStall(row.process, length, row.progress) ? 1 : 0;
            }
            report.equal(std::string(row.name) + " stopped for " + std::to_string(length.count()) +
                             " s: both directions within 2 s",
                         back, options.times, "times");
        }
    }
    report.check("both directions, both peers, at the end", growsSoon(ofBoth), "", "work");
    unit.endSimulator("cloud");
    checkStop(unit, report);
}

// Kills and restarts a simulator; its paths work again each time.
void kills(Unit& unit, const std::string& role, const std::function<void()>& start, const Progress& progress,
           const Options& options, Report& report) {
    uint32_t back = 0;
    for (uint32_t i = 0; i < options.times; i++) {
        unit.endSimulator(role, SIGKILL);
        std::this_thread::sleep_for(100ms);
        start();
        back += growsSoon(progress) ? 1 : 0;
    }
    report.equal(role + " killed and started again: works again", back, options.times, "times");
}

void killedPeers(const Options& options, Report& report) {
    Site unit;
    unit.startAndWaitReady();
    const Stopwatch watch;
    std::optional<StackDesk> desk(unit.stack);
    for (const auto& [source, rate] : {std::pair{LEARNER, REPORTS}, {CONTROLLER, FRAMES}, {CLOUD, DOCUMENTS}}) {
        startSource(unit, source, rate);
    }
    const Progress ofCloud = [&] { return std::vector{desk->of(CLOUD), documentsUp(unit)}; };
    report.check("all paths before the first kill", growsSoon([&] {
                     return std::vector{desk->of(LEARNER), desk->of(CONTROLLER), desk->of(CLOUD), documentsUp(unit)};
                 }),
                 "", "work");
    const Sample before = sample(unit.daemon->pid(), unit.logPath);
    kills(
        unit, "cloud", [&] { startSource(unit, CLOUD, DOCUMENTS); }, ofCloud, options, report);

    // The simulator takes over the stack application's socket.
    desk.reset();
    unit.stack.release();
    const auto startStack = [&] {
        unit.startSimulator("stack", {"--listen", std::to_string(unit.stack.port()), "--json"});
    };
    startStack();
    const Progress ofStack = [&] {
        return std::vector{uint64_t{unit.simulatorOutput("stack").size()}, documentsUp(unit)};
    };
    kills(unit, "stack", startStack, ofStack, options, report);

    const uint64_t reports = endSource(unit, LEARNER);
    const uint64_t frames = endSource(unit, CONTROLLER);
    const uint64_t documents = endSource(unit, CLOUD);
    std::this_thread::sleep_for(DRAIN);
    unit.endStackSimulator();
    const Sample after = sample(unit.daemon->pid(), unit.logPath);
    report.atMost("threads, before and after", after.threads, before.threads);
    report.atMost("descriptors, before and after", after.descriptors, before.descriptors);
    const int64_t seconds = watch.ms() / 1000;
    const std::string summary = readFile(unit.folder.path() + "/learner.json");
    report.atLeast("heartbeats at the learner in " + std::to_string(seconds) + " s",
                   static_cast<int64_t>(counted(summary, "heartbeats")), seconds * 8 / 10 - 3);
    checkStop(unit, report);
    const Counts seen = counts(unit.logPath);
    const auto count = [&](const char* name) { return static_cast<int64_t>(of(seen, name)); };
    report.equal("reports sent, and accepted", count("learner.accepted"), static_cast<int64_t>(reports));
    report.equal("frames sent, and accepted", count("1743.accepted"), static_cast<int64_t>(frames));
    report.atLeast("documents of the last cloud sent, and accepted", count("down.accepted"),
                   static_cast<int64_t>(documents));
    report.equal("records sent, of all that was accepted", count("record.sent"),
                 count("learner.accepted") + count("1743.accepted") + count("down.accepted"));
    report.equal("documents and status records refused by DDS", count("cloud.not_sent"), 0);
}

} // namespace

void planPeers(const Options& options, Report& report) {
    stalls(options, report);
    killedPeers(options, report);
}
