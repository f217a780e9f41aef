#include "paths.h"

#include <sstream>

#include "messages.h"

namespace {

using namespace std::chrono_literals;

constexpr auto LOOK = 3000ms; // a path that is to be off has so long to show that it is not

std::string text(double number) {
    std::ostringstream out;
    out << number;
    return out.str();
}

} // namespace

void startLearner(Unit& unit, double rate) {
    unit.learner.release();
    unit.startSimulator("learner",
                        {"--target", addressOf(unit.reportPort), "--listen", std::to_string(unit.learner.port()),
                         "--rate", text(rate), "--phases", std::to_string(LEARNER_PHASES), "--quiet"});
}

void startController(Unit& unit, double rate) {
    unit.controller.release();
    unit.startSimulator("controller",
                        {"--target", addressOf(unit.framePort), "--listen", std::to_string(unit.controller.port()),
                         "--rate", text(rate), "--links", std::to_string(CONTROLLER_LINKS), "--groups",
                         std::to_string(CONTROLLER_GROUPS), "--quiet"});
}

void startCloud(Unit& unit, double rate) {
    unit.startCloudSimulator({"--rate", text(rate), "--node", std::to_string(CLOUD_NODE), "--status-interval", "0.5"});
}

uint64_t documentsUp(const Unit& unit) {
    const std::string START = "{\"topic\":\"rsu/" + unit.device + "/spat/up\"";
    const std::string output = unit.simulatorOutput("cloud");
    uint64_t count = 0;
    for (size_t at = output.find(START); at != std::string::npos; at = output.find(START, at + 1)) {
        count++;
    }
    return count;
}

bool logToolAnswered(const Unit& unit) {
    const Peer tool;
    tool.sendTo(unit.logToolPort, LOG_REQUEST);
    const std::optional<Bytes> answer = tool.receive(500);
    return answer.has_value() && answer->size() > 22 && answer->at(12) == 51;
}

std::string pathsAtWork(Unit& unit, const StackDesk& desk, const std::string& wanted, int milliseconds) {
    const auto lookedUntil = std::chrono::steady_clock::now() + LOOK;
    const Records before = desk.records();
    startLearner(unit);
    startController(unit);
    startCloud(unit);
    std::string working;
    eventually(
        [&] {
            const struct {
                const char* name;
                bool works;
            } paths[] = {{"learner", desk.of(LEARNER) > before[LEARNER]},
                         {"controller", desk.of(CONTROLLER) > before[CONTROLLER]},
                         {"down", desk.of(CLOUD) > before[CLOUD]},
                         {"up", documentsUp(unit) > 0},
                         {"logtool", logToolAnswered(unit)}};
            working.clear();
            for (const auto& path : paths) {
                working += path.works ? (working.empty() ? "" : " ") + std::string(path.name) : "";
            }
            return working == wanted && std::chrono::steady_clock::now() >= lookedUntil;
        },
        milliseconds);
    for (const char* role : {"learner", "controller", "cloud"}) {
        unit.endSimulator(role);
    }
    return working;
}
