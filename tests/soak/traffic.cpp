#include "traffic.h"

#include <algorithm>
#include <fstream>
#include <numeric>
#include <sstream>

#include "encoded_frames.h"
#include "messages.h"

namespace fs = std::filesystem;

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
    if (datagram.size() != 28) { // a request has 28 bytes, a record more than 40
        m_counts[datagram.size() > 40 ? m_tell(datagram) : UNKNOWN]++;
        return;
    }
    m_requestPort = m_stack.senderPort();
    if (m_answers) {
        m_stack.sendTo(m_stack.senderPort(), REPLY);
    }
}

void checkStop(Unit& unit, Report& report) {
    unit.daemon->signal(SIGTERM);
    report.equal("exit status after SIGTERM", unit.daemon->wait(20000), 0);
}

// A counter line: "... counters PATH: NAME COUNT, NAME COUNT", perhaps with " [...]" behind it.
Counts counts(const std::string& logPath) {
    const std::string START = ":counters ";
    Counts found;
    for (const fs::directory_entry& file : fs::directory_iterator(fs::path(logPath).parent_path())) {
        std::ifstream in(file.path());
        for (std::string line; std::getline(in, line);) {
            const size_t at = line.find(START);
            const size_t colon = line.find(": ", at + START.size());
            if (at == std::string::npos || colon == std::string::npos) {
                continue;
            }
            const std::string path = line.substr(at + START.size(), colon - at - START.size()) + ".";
            std::istringstream parts(line.substr(colon + 2, line.find(" [", colon) - colon - 2));
            for (std::string name, number; parts >> name >> number;) {
                uint64_t& count = found[path + name]; // counts only grow
                count = std::max<uint64_t>(count, strtoull(number.c_str(), nullptr, 10));
            }
        }
    }
    return found;
}

uint64_t of(const Counts& counts, const std::string& name) {
    const auto at = counts.find(name);
    return at == counts.end() ? 0 : at->second;
}
