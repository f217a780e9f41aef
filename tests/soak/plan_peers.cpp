// DDS peers and the daemon that stall: both directions work again within two seconds, though other participants come
// and go.
#include <algorithm>
#include <csignal>
#include <functional>
#include <thread>

#include "dds/dds_test.h"
#include "plans.h"
#include "traffic.h"

namespace {

using namespace std::chrono_literals;

constexpr int BACK_MS = 10000;
constexpr auto STALLS = {4s, 9s};
constexpr auto STALE = 500ms; // after it, what was sent during the stall has arrived
constexpr auto LIMIT = 2000ms;
constexpr int CLOUD_NODE = 77;
constexpr int CYCLONE_NODE = 78;

Source sourceOf(const Bytes& record) {
    return record.at(28) == CLOUD_NODE ? CLOUD : record.at(28) == CYCLONE_NODE ? CYCLONE : UNKNOWN;
}

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

} // namespace

void planPeers(const Options& options, Report& report) {
    Unit unit;
    unit.corrections = "SpatDown = true; ReplyItems = true;";
    const StackDesk desk(unit.stack, sourceOf);
    unit.startAndWaitReady();
    unit.startCloudSimulator(
        {"--rate", "10", "--node", std::to_string(CLOUD_NODE), "--status", "1", "--status-interval", "0.5"});
    const std::string base = unit.folder.path() + "/cyclone";
    const std::string document = base + ".json";
    writeFile(document, R"({"intersections":[{"intersectionId":{"region":1,"id":)" + std::to_string(CYCLONE_NODE) +
                            R"(},"status":0,"phases":[{"phaseId":1,"phaseStates":[{"light":3}]}]}]})");
    const std::string topics = "rsu/" + unit.device + "/spat/";
    Process cyclone({V2X_BIN "/cyclone_peer", "200", topics + "up", topics + "down", "100", document},
                    {Peer::CYCLONE_ON_LOOPBACK}, base + ".out", base + ".err");
    const Progress ofCloud = [&] {
        const std::string documentUp = "{\"topic\":\"" + topics + "up\"";
        return std::vector{desk.of(CLOUD), uint64_t{occurrences(unit.simulatorOutput("cloud"), documentUp)}};
    };
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
                         back, options.times);
        }
    }
    report.check("both directions, both peers, at the end", growsSoon(ofBoth), "", "work");
    unit.endSimulator("cloud");
    checkStop(unit, report);
}
