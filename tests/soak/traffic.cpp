#include "traffic.h"

#include <numeric>

#include "encoded_frames.h"
#include "messages.h"

namespace {

constexpr size_t TYPE_AT = 17;
constexpr size_t NODE_AT = 28;
constexpr size_t PHASE_NUM_AT = 40;
constexpr size_t REQUEST_SIZE = 28;
constexpr uint8_t TYPE_RECORD = 1;
constexpr uint8_t TYPE_REQUEST = 11;

constexpr const char* ROLES[] = {"learner", "controller", "cloud"};

} // namespace

Source sourceOf(const Bytes& record) {
    if (record.size() <= PHASE_NUM_AT || record[TYPE_AT] != TYPE_RECORD) {
        return UNKNOWN;
    }
    if (record[NODE_AT] == CLOUD_NODE || record[NODE_AT] == CYCLONE_NODE) {
        return record[NODE_AT] == CLOUD_NODE ? CLOUD : CYCLONE;
    }
    const int phases = record[PHASE_NUM_AT];
    return phases == LEARNER_PHASES ? LEARNER : phases == CONTROLLER_LINKS * CONTROLLER_GROUPS ? CONTROLLER : UNKNOWN;
}

StackDesk::StackDesk(UdpPeer& stack, Source (*tell)(const Bytes& record)) : m_stack(stack), m_tell(tell) {
    m_thread = std::jthread([this](const std::stop_token& stop) {
        while (!stop.stop_requested()) {
            if (const std::optional<Bytes> datagram = m_stack.receive(50)) {
                take(*datagram);
            }
        }
    });
}

uint64_t StackDesk::all() const {
    return std::accumulate(std::begin(m_counts), std::end(m_counts), uint64_t{0});
}

void StackDesk::take(const Bytes& datagram) {
    static const Bytes REPLY = replyWith(hex(encoded::spat));
    if (datagram.size() != REQUEST_SIZE || datagram[TYPE_AT] != TYPE_REQUEST) {
        m_counts[datagram.size() > PHASE_NUM_AT ? m_tell(datagram) : UNKNOWN]++;
        return;
    }
    m_requestPort = m_stack.senderPort();
    if (m_answers) {
        m_stack.sendTo(m_stack.senderPort(), REPLY);
    }
}

void startSource(Unit& unit, Source source, double rate) {
    if (source == CLOUD) {
        unit.startCloudSimulator({"--rate", std::to_string(rate), "--node", std::to_string(CLOUD_NODE), "--status", "1",
                                  "--status-interval", "0.5"});
    } else if (source == LEARNER) {
        unit.startDevice(ROLES[source], rate, {"--phases", std::to_string(LEARNER_PHASES)});
    } else {
        unit.startDevice(ROLES[source], rate,
                         {"--groups", std::to_string(CONTROLLER_GROUPS), "--links", std::to_string(CONTROLLER_LINKS)});
    }
}

uint64_t endSource(Unit& unit, Source source) {
    return counted(unit.endSimulator(ROLES[source]), source == CLOUD ? "downGood" : "sent");
}

uint64_t documentsUp(const Unit& unit) {
    return occurrences(unit.simulatorOutput("cloud"), "{\"topic\":\"rsu/" + unit.device + "/spat/up\"");
}

bool logToolAnswered(const Unit& unit) {
    UdpPeer tool;
    tool.sendTo(unit.logToolPort, LOG_REQUEST);
    const std::optional<Bytes> answer = tool.receive(500);
    return answer.has_value() && answer->size() > 22 && answer->at(12) == 51;
}

void checkStop(Unit& unit, Report& report) {
    unit.daemon->signal(SIGTERM);
    report.equal("exit status after SIGTERM", unit.daemon->wait(20000), 0);
}
