#include "work.h"

#include <arpa/inet.h>
#include <fstream>
#include <poll.h>
#include <sstream>
#include <sys/socket.h>

#include "encoded_frames.h"
#include "frame_1743.h"
#include "messages.h"

namespace {

constexpr size_t REQUEST_SIZE = 28;
constexpr size_t MOY_AT = 34;
constexpr size_t PHASE_AT = 41;
constexpr size_t END_TIME_AT = 47;
constexpr uint8_t PHASE = 3;

bool isFromCloud(const Bytes& frame) {
    return frame.size() > MOY_AT + 4 && frame[MOY_AT] == 0xFF && frame[MOY_AT + 1] == 0xFF &&
           frame[MOY_AT + 2] == 0xFF && frame[MOY_AT + 3] == 0xFF;
}

} // namespace

Work::Work(Unit& unit) : m_unit(unit), m_thread(&Work::run, this) {}

Work::~Work() {
    m_ends = true;
    m_thread.join();
}

void Work::startCloud(std::vector<std::string> arguments) {
    endCloud();
    m_unit.startCloudSimulator(std::move(arguments));
    m_hasCloud = true;
    m_cloudRead = 0;
    m_documentsUp = m_available = m_unavailable = 0;
}

void Work::endCloud() {
    if (m_hasCloud) {
        m_unit.endSimulator("cloud", SIGKILL);
        m_hasCloud = false;
    }
}

void Work::sendFrame() {
    using namespace frame_1743;
    m_framesSent++;
    m_unit.controller.sendTo(m_unit.framePort, frame(payload({{90, {{1, 0x20, 9}}}})));
}

void Work::sendReport() {
    m_reportsSent++;
    m_seconds = static_cast<uint8_t>(m_seconds % 200 + 1);
    m_unit.learner.sendTo(m_unit.reportPort, {0xFE, 0xFE, 0x10, 0, 10, 0, 1, 0, PHASE, 1, m_seconds, 0, 0, 0, 0});
}

bool Work::reportArrives(int milliseconds) {
    sendReport();
    const auto arrived = [&] {
        const Bytes frame = lastRecord();
        return frame.size() > END_TIME_AT + 1 && frame[END_TIME_AT] + 256 * frame[END_TIME_AT + 1] == 10 * m_seconds;
    };
    eventually([&] { return arrived() || m_unit.daemon->wait(0) != -1; }, milliseconds);
    return arrived();
}

bool Work::documentArrives(int milliseconds) {
    const uint64_t before = m_documents;
    return eventually([&] { return m_documents > before; }, milliseconds);
}

bool Work::replyArrives(int milliseconds) {
    const uint64_t before = documentsUp();
    return eventually([&] { return documentsUp() > before; }, milliseconds);
}

std::string Work::missing(int milliseconds) {
    std::string names;
    names += reportArrives(milliseconds) ? "" : " report";
    names += documentArrives(milliseconds) ? "" : " document";
    names += replyArrives(milliseconds) ? "" : " reply";
    return names;
}

Bytes Work::lastRecord() const {
    const std::lock_guard lock(m_mutex);
    return m_lastRecord;
}

void Work::run() {
    constexpr int LOOK_MS = 50; // for the end
    pollfd sockets[] = {{m_unit.stack.fd(), POLLIN, 0}, {m_unit.learner.fd(), POLLIN, 0}};
    while (!m_ends) {
        poll(sockets, 2, LOOK_MS);
        m_unit.notify.receive(0); // the watchdog's
        if ((sockets[0].revents & POLLIN) != 0) {
            takeFromStack();
        }
        uint8_t beat[64];
        if ((sockets[1].revents & POLLIN) != 0 && recv(m_unit.learner.fd(), beat, sizeof beat, MSG_DONTWAIT) == 11) {
            m_heartbeats++;
        }
    }
}

void Work::takeFromStack() {
    static const Bytes REPLY = replyWith(hex(encoded::spat));
    Bytes bytes(65536);
    sockaddr_in sender = {};
    socklen_t length = sizeof sender;
    auto* const address = reinterpret_cast<sockaddr*>(&sender);
    const ssize_t size = recvfrom(m_unit.stack.fd(), bytes.data(), bytes.size(), MSG_DONTWAIT, address, &length);
    bytes.resize(size < 0 ? 0 : static_cast<size_t>(size));
    if (bytes.size() == REQUEST_SIZE) {
        m_requests++;
        sendto(m_unit.stack.fd(), REPLY.data(), REPLY.size(), 0, address, length);
    } else if (!bytes.empty()) {
        takeRecord(bytes);
    }
}

void Work::takeRecord(const Bytes& frame) {
    if (isFromCloud(frame)) {
        m_documents++;
        return;
    }
    if (frame.size() <= PHASE_AT || frame[PHASE_AT] != PHASE) {
        return; // of a controller's frame
    }
    const std::lock_guard lock(m_mutex);
    m_lastRecord = frame;
}

// What the simulator has written since the last look, in whole lines.
void Work::readCloud() {
    std::ifstream in(m_unit.folder.path() + "/cloud.out", std::ios::binary);
    in.seekg(static_cast<std::streamoff>(m_cloudRead));
    std::string text{std::istreambuf_iterator<char>(in), {}};
    text.resize(text.rfind('\n') == std::string::npos ? 0 : text.rfind('\n') + 1);
    m_cloudRead += text.size();
    std::istringstream lines(text);
    for (std::string line; std::getline(lines, line);) {
        m_documentsUp += line.find("\"intersectionId\":{\"region\"") != std::string::npos ? 1 : 0;
        if (isOwnStatus(line)) {
            m_available += line.find("\"run\":1") != std::string::npos ? 1 : 0;
            m_unavailable += line.find("\"run\":2") != std::string::npos ? 1 : 0;
        }
    }
}

// With what this daemon can have received: at most what was sent, and of the last ten seconds.
bool Work::isOwnStatus(const std::string& line) const {
    constexpr uint64_t LATELY = 100;
    if (line.find("\"status\":{") == std::string::npos) {
        return false;
    }
    const uint64_t received = counted(line, "received");
    const auto isOf = [&](uint64_t sent) { return received <= sent && received + LATELY >= sent && received > 0; };
    return isOf(m_reportsSent) || isOf(m_framesSent);
}
