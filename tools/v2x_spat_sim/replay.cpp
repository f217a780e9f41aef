#include "replay.h"

#include <algorithm>
#include <cinttypes>
#include <cstdio>
#include <map>
#include <stdexcept>
#include <utility>

#include "common/capture_file.h"
#include "text.h"

namespace sim {
namespace {

using std::chrono::nanoseconds;
using Ports = std::map<uint16_t, uint64_t>; // number of datagrams to each port

void PrintIgnored(const std::string& file, const tools::CaptureCounts& counts) {
    const std::string ignored = tools::DescribeIgnored(counts);
    if (!ignored.empty()) {
        std::fprintf(stderr, "v2x_spat_sim: %s: %s\n", file.c_str(), ignored.c_str());
    }
}

std::string DescribePorts(const Ports& ports) {
    std::string text;
    for (const auto& [port, count] : ports) {
        text += FormatText("%s%u (%" PRIu64 ")", text.empty() ? "" : ", ", port, count);
    }
    return text.empty() ? "it has no UDP datagram" : "it has datagrams to the ports " + text;
}

std::vector<nanoseconds> ComputeDueTimes(const std::vector<ReplayMessage>& messages, double speed) {
    constexpr double MAX_DELAY = 1e17; // nanoseconds, three years
    std::vector<nanoseconds> dueTimes;
    uint64_t latest = messages.front().time;
    for (const ReplayMessage& message : messages) {
        latest = std::max(latest, message.time);
        const double microseconds = static_cast<double>(latest - messages.front().time) / speed;
        dueTimes.emplace_back(static_cast<int64_t>(std::min(microseconds * 1000, MAX_DELAY)));
    }
    return dueTimes;
}

nanoseconds ComputeRoundLength(const std::vector<nanoseconds>& dueTimes) {
    constexpr nanoseconds WITHOUT_GAP = std::chrono::seconds(1);
    const nanoseconds last = dueTimes.back();
    return last + (last.count() > 0 ? last / (static_cast<int64_t>(dueTimes.size()) - 1) : WITHOUT_GAP);
}

} // namespace

std::vector<ReplayMessage> LoadDatagrams(const std::string& file, uint16_t port) {
    std::vector<ReplayMessage> messages;
    Ports ports;
    PrintIgnored(file, tools::ReadCapture(file, [&](const tools::Datagram& datagram) {
                     const auto& payload = datagram.payload;
                     ++ports[datagram.destination.port];
                     if (datagram.destination.port == port && !payload.empty() && payload.size() <= MAX_DATAGRAM) {
                         messages.push_back({datagram.time, "", {payload.begin(), payload.end()}});
                     }
                 }));
    if (messages.empty()) {
        throw std::runtime_error(
            FormatText("%s: no datagram to port %u; %s", file.c_str(), port, DescribePorts(ports).c_str()));
    }
    return messages;
}

std::vector<ReplayMessage> LoadSamples(const std::string& file, const std::string& documentTopic,
                                       const std::string& statusTopic) {
    std::vector<ReplayMessage> messages;
    PrintIgnored(file, tools::ReadCapture(file, [&](const tools::Datagram& datagram) {
                     const auto sample = tools::ReadSample(datagram);
                     if (!sample || sample->isSent || sample->octets.empty()) {
                         return;
                     }
                     const bool isDocument = sample->topic.starts_with("rsu/") && sample->topic.ends_with("/spat/down");
                     if (isDocument || sample->topic == statusTopic) {
                         messages.push_back({datagram.time,
                                             isDocument ? documentTopic : statusTopic,
                                             {sample->octets.begin(), sample->octets.end()}});
                     }
                 }));
    if (messages.empty()) {
        throw std::runtime_error(file + ": no sample for the daemon; only v2x_spat_ctl captures DDS samples");
    }
    return messages;
}

ReplaySource::ReplaySource(std::vector<ReplayMessage> messages, double speed, bool isLooped)
    : m_messages(std::move(messages)), m_dueTimes(ComputeDueTimes(m_messages, speed)),
      m_roundLength(ComputeRoundLength(m_dueTimes)), m_isLooped(isLooped) {}

std::optional<nanoseconds> ReplaySource::DueTime(nanoseconds /*now*/) {
    if (m_next == m_messages.size()) {
        return std::nullopt;
    }
    return m_round * m_roundLength + m_dueTimes[m_next];
}

std::vector<uint8_t> ReplaySource::TakeNext() {
    std::vector<uint8_t> bytes = m_messages[m_next].bytes;
    ++m_next;
    if (m_next == m_messages.size() && m_isLooped) {
        m_next = 0;
        ++m_round;
    }
    return bytes;
}

std::string ReplaySource::FormatState(nanoseconds /*now*/) const {
    return FormatText("next is message %zu of %zu, round %" PRId64, m_next + 1, m_messages.size(), m_round + 1);
}

} // namespace sim
