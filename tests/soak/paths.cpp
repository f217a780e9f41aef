#include "paths.h"

#include "messages.h"

namespace {

using namespace std::chrono_literals;

constexpr auto LOOK = 3000ms; // a path that is to be off has so long to show that it is not
constexpr int FOUND_MS = 10000;

// The paths that worked.
std::string pathsAtWork(Unit& unit, const StackDesk& desk, const std::string& wanted) {
    const auto lookedUntil = std::chrono::steady_clock::now() + LOOK;
    const Records before = desk.records();
    startSources(unit);
    std::string working;
    eventually(
        [&] {
            working.clear();
            for (const auto& [name, works] : {std::pair{"learner", desk.of(LEARNER) > before[LEARNER]},
                                              {"controller", desk.of(CONTROLLER) > before[CONTROLLER]},
                                              {"down", desk.of(CLOUD) > before[CLOUD]},
                                              {"up", documentsUp(unit) > 0},
                                              {"logtool", logToolAnswered(unit)}}) {
                working += works ? (working.empty() ? "" : " ") + std::string(name) : "";
            }
            return working == wanted && std::chrono::steady_clock::now() >= lookedUntil;
        },
        FOUND_MS);
    endSources(unit);
    return working;
}

} // namespace

void startSource(Unit& unit, Source source, double rate) {
    const auto device = [&](UdpPeer& place, uint16_t target, const char* what, int many,
                            std::vector<std::string> more) {
        place.release();
        more.insert(more.end(), {"--target", addressOf(target), "--listen", std::to_string(place.port()), "--rate",
                                 std::to_string(rate), what, std::to_string(many), "--quiet"});
        unit.startSimulator(ROLES[source], more);
    };
    if (source == LEARNER) {
        device(unit.learner, unit.reportPort, "--phases", LEARNER_PHASES, {});
    } else if (source == CONTROLLER) {
        device(unit.controller, unit.framePort, "--groups", CONTROLLER_GROUPS,
               {"--links", std::to_string(CONTROLLER_LINKS)});
    } else {
        unit.startCloudSimulator(
            {"--rate", std::to_string(rate), "--node", std::to_string(CLOUD_NODE), "--status-interval", "0.5"});
    }
}

void startSources(Unit& unit, const Rates& rates) {
    for (const Source source : {LEARNER, CONTROLLER, CLOUD}) {
        startSource(unit, source, rates[source]);
    }
}

uint64_t endSource(Unit& unit, Source source) {
    return counted(unit.endSimulator(ROLES[source]), source == CLOUD ? "downGood" : "sent");
}

Records endSources(Unit& unit) {
    return {endSource(unit, LEARNER), endSource(unit, CONTROLLER), endSource(unit, CLOUD)};
}

size_t times(const std::string& all, const std::string& text) {
    size_t count = 0;
    for (size_t at = all.find(text); at != std::string::npos; at = all.find(text, at + text.size())) {
        count++;
    }
    return count;
}

uint64_t documentsUp(const Unit& unit) {
    return times(unit.simulatorOutput("cloud"), "{\"topic\":\"rsu/" + unit.device + "/spat/up\"");
}

uint64_t heartbeats(const Unit& unit) {
    return counted(readFile(unit.folder.path() + "/learner.json"), "heartbeats");
}

bool logToolAnswered(const Unit& unit) {
    UdpPeer tool;
    tool.sendTo(unit.logToolPort, LOG_REQUEST);
    const std::optional<Bytes> answer = tool.receive(500);
    return answer.has_value() && answer->size() > 22 && answer->at(12) == 51;
}

void checkPaths(Unit& unit, const StackDesk& desk, const std::string& what, Table& table, const std::string& wanted) {
    const std::string working = pathsAtWork(unit, desk, wanted);
    table.check(what, working == wanted, working.empty() ? "none" : working, wanted.empty() ? "none" : wanted);
}

void checkTraffic(const Unit& unit, const StackDesk& desk, const std::string& what, Table& table) {
    const bool comes = eventually(
        [&] { return desk.of(LEARNER) > 0 && desk.of(CONTROLLER) > 0 && desk.of(CLOUD) > 0 && documentsUp(unit) > 0; },
        FOUND_MS);
    const auto [reports, frames, documents] = desk.records();
    table.check(what, comes,
                "records " + std::to_string(reports) + "/" + std::to_string(frames) + "/" + std::to_string(documents) +
                    ", up " + std::to_string(documentsUp(unit)),
                "on each path");
}

void checkLives(Unit& unit, const std::string& what, Table& table) {
    const int status = unit.daemon->wait(0);
    table.check(what + ": the daemon", status == -1, status == -1 ? "lives" : "ended with " + std::to_string(status),
                "lives");
}

void checkEnds(Unit& unit, const std::string& what, Table& table) {
    unit.daemon->signal(SIGTERM);
    table.equal(what + ", status", unit.daemon->wait(20000), 0);
}
