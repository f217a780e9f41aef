#include "source.h"

#include <cinttypes>
#include <utility>

#include "text.h"

namespace sim {

using std::chrono::nanoseconds;

PlanSource::PlanSource(double rate, PhaseRange phases, nanoseconds start, Encode encode)
    : m_rate(rate), m_phases(phases), m_start(start), m_encode(std::move(encode)) {}

// From the index and not from the deadline before, so that rounding does not add up.
nanoseconds PlanSource::Deadline() const {
    return nanoseconds(static_cast<int64_t>(static_cast<double>(m_index) * 1e9 / m_rate));
}

std::optional<nanoseconds> PlanSource::Due(nanoseconds now) {
    if (now - Deadline() > std::chrono::seconds(1)) {
        m_index = static_cast<uint64_t>(static_cast<double>(now.count()) * m_rate / 1e9);
    }
    return Deadline();
}

std::vector<uint8_t> PlanSource::Take() {
    std::vector<uint8_t> datagram = m_encode(PlanAt(m_start + Deadline(), m_phases));
    ++m_index;
    return datagram;
}

std::string PlanSource::State(nanoseconds now) const {
    return PlanText(PlanAt(m_start + now, m_phases));
}

ReplaySource::ReplaySource(std::vector<ReplayDatagram> datagrams, bool loop)
    : m_datagrams(std::move(datagrams)), m_roundLength(ReplayRound(m_datagrams)), m_loop(loop) {}

std::optional<nanoseconds> ReplaySource::Due(nanoseconds /*now*/) {
    if (m_next == m_datagrams.size()) {
        return std::nullopt;
    }
    return m_round * m_roundLength + m_datagrams[m_next].time;
}

std::vector<uint8_t> ReplaySource::Take() {
    std::vector<uint8_t> datagram = m_datagrams[m_next].bytes;
    ++m_next;
    if (m_next == m_datagrams.size() && m_loop) {
        m_next = 0;
        ++m_round;
    }
    return datagram;
}

std::string ReplaySource::State(nanoseconds /*now*/) const {
    return FormatText("next is datagram %zu of %zu, round %" PRId64, m_next + 1, m_datagrams.size(), m_round + 1);
}

} // namespace sim
