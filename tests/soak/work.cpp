#include "work.h"

#include "frame_1743.h"
#include "paths.h"

void Work::startCloud(std::vector<std::string> arguments) {
    endCloud();
    arguments.insert(arguments.end(), {"--node", std::to_string(CLOUD_NODE)});
    m_unit.startCloudSimulator(std::move(arguments));
    m_hasCloud = true;
}

void Work::endCloud() {
    if (m_hasCloud) {
        m_unit.endSimulator("cloud", SIGKILL);
        m_hasCloud = false;
    }
}

bool Work::wait(int milliseconds, const std::function<bool()>& condition) const {
    const auto ask = [&] {
        m_unit.notify.receive(0); // the watchdog's
        return condition();
    };
    return eventually(ask, milliseconds);
}

bool Work::reportArrives(int milliseconds) {
    sendReport();
    const auto arrived = [&] {
        const std::vector<std::string> record =
            m_desk.of(LEARNER) > 0 ? recordOf(lastRecord()) : std::vector<std::string>();
        return record.size() > 1 && record[1].ends_with(":" + std::to_string(10 * m_seconds));
    };
    wait(milliseconds, [&] { return arrived() || m_unit.daemon->wait(0) != -1; });
    return arrived();
}

bool Work::frameArrives(int milliseconds) const {
    const uint64_t before = m_desk.of(SOURCES); // it is smaller than those of the traffic
    sendFrame();
    return wait(milliseconds, [&] { return m_desk.of(SOURCES) > before; });
}

bool Work::documentArrives(int milliseconds) const {
    return wait(milliseconds, [&, before = documents()] { return documents() > before; });
}

bool Work::replyArrives(int milliseconds) const {
    return wait(milliseconds, [&, before = documentsUp(m_unit)] { return documentsUp(m_unit) > before; });
}

std::string Work::missing(int milliseconds) {
    std::string names;
    names += reportArrives(milliseconds) ? "" : " report";
    names += documentArrives(milliseconds) ? "" : " document";
    names += replyArrives(milliseconds) ? "" : " reply";
    return names;
}

uint64_t Work::heartbeats() {
    constexpr size_t SIZE = 11;
    for (std::optional<Bytes> beat = m_unit.learner.receive(0); beat.has_value(); beat = m_unit.learner.receive(0)) {
        m_heartbeats += beat->size() == SIZE ? 1 : 0;
    }
    return m_heartbeats;
}

void Work::sendReport() {
    m_unit.notify.receive(0); // the watchdog's
    m_seconds = static_cast<uint8_t>(m_seconds % 200 + 1);
    Bytes report = hex("FEFE10 0018 000300");
    for (uint8_t phase = 1; phase <= LEARNER_PHASES; phase++) {
        report.insert(report.end(), {phase, 1, m_seconds, 0, 0, 0, 0});
    }
    m_unit.learner.sendTo(m_unit.reportPort, report);
}

void Work::sendFrame() const {
    using namespace frame_1743;
    m_unit.controller.sendTo(m_unit.framePort, frame(payload({{90, {{1, 0x20, 9}}}})));
}
