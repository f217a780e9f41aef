#include "source.h"

#include <utility>

namespace sim {
using std::chrono::nanoseconds;

PlanSource::PlanSource(double rate, PhaseRange phases, nanoseconds start, Encode encode, const FaultOptions& faults)
    : m_rate(rate), m_phases(phases), m_start(start), m_encode(std::move(encode)), m_faults(faults) {}

// Computes the time from the index, so that rounding errors do not add up.
nanoseconds PlanSource::Deadline() const {
    return nanoseconds(static_cast<int64_t>(static_cast<double>(m_index) * 1e9 / m_rate));
}

std::optional<nanoseconds> PlanSource::DueTime(nanoseconds now) {
    if (now - Deadline() > std::chrono::seconds(1)) {
        m_index = static_cast<uint64_t>(static_cast<double>(now.count()) * m_rate / 1e9);
    }
    return Deadline();
}

std::vector<uint8_t> PlanSource::TakeNext() {
    std::vector<PhaseLight> lights = PlanAt(m_start + Deadline(), m_phases);
    m_faults.Apply(Deadline(), lights);
    ++m_index;
    return lights.empty() ? std::vector<uint8_t>{} : m_encode(lights);
}

std::string PlanSource::FormatState(nanoseconds now) const {
    return FormatPlan(PlanAt(m_start + now, m_phases)) + m_faults.FormatState();
}

} // namespace sim
