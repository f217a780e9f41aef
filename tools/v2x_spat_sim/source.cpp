#include "source.h"

#include <charconv>
#include <cinttypes>
#include <stdexcept>
#include <string_view>
#include <utility>

#include "common/hex.h"
#include "text.h"

namespace sim {
namespace {

using std::chrono::nanoseconds;

constexpr std::string_view BLANKS = " \t\r";

// Removes the time from the start of the line and returns the time.
std::chrono::milliseconds TakeTime(std::string_view& line) {
    constexpr int64_t MAX_TIME = 1'000'000'000'000;
    line.remove_prefix(line.find_first_not_of(BLANKS));
    const std::string_view word = line.substr(0, line.find_first_of(BLANKS));
    line.remove_prefix(word.size());
    int64_t value = 0;
    const auto [stop, error] = std::from_chars(word.data(), word.data() + word.size(), value);
    if (error != std::errc{} || stop != word.data() + word.size() || value < 0 || value > MAX_TIME) {
        throw std::invalid_argument("'" + std::string(word) + "' is not a time in milliseconds");
    }
    return std::chrono::milliseconds(value);
}

// Parses a line with at least one character that is not blank.
ReplayDatagram ParseLine(std::string_view line) {
    ReplayDatagram datagram{TakeTime(line), {}};
    const std::string problem = tools::AppendHex(line, datagram.bytes);
    if (!problem.empty()) {
        throw std::invalid_argument("after the time, " + problem);
    }
    if (datagram.bytes.empty() || datagram.bytes.size() > MAX_DATAGRAM) {
        throw std::invalid_argument(
            FormatText("%zu bytes; a datagram has 1 to %zu", datagram.bytes.size(), MAX_DATAGRAM));
    }
    return datagram;
}

nanoseconds ComputeRoundLength(const std::vector<ReplayDatagram>& datagrams) {
    constexpr nanoseconds WITHOUT_GAP = std::chrono::seconds(1);
    const nanoseconds last = datagrams.back().time;
    const nanoseconds span = last - datagrams.front().time;
    const auto gaps = static_cast<int64_t>(datagrams.size()) - 1;
    return last + (span.count() > 0 ? span / gaps : WITHOUT_GAP);
}

} // namespace

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

std::vector<ReplayDatagram> ParseReplay(const std::string& text, const std::string& name) {
    std::vector<ReplayDatagram> datagrams;
    ForEachLine(text, name, [&](std::string_view line) {
        ReplayDatagram datagram = ParseLine(line);
        if (!datagrams.empty() && datagram.time < datagrams.back().time) {
            throw std::invalid_argument("the time is earlier than the time of the previous datagram");
        }
        datagrams.push_back(std::move(datagram));
    });
    if (datagrams.empty()) {
        throw std::runtime_error(name + ": the file has no datagram");
    }
    return datagrams;
}

ReplaySource::ReplaySource(std::vector<ReplayDatagram> datagrams, bool isLooped)
    : m_datagrams(std::move(datagrams)), m_roundLength(ComputeRoundLength(m_datagrams)), m_isLooped(isLooped) {}

std::optional<nanoseconds> ReplaySource::DueTime(nanoseconds /*now*/) {
    if (m_next == m_datagrams.size()) {
        return std::nullopt;
    }
    return m_round * m_roundLength + m_datagrams[m_next].time;
}

std::vector<uint8_t> ReplaySource::TakeNext() {
    std::vector<uint8_t> message = m_datagrams[m_next].bytes;
    ++m_next;
    if (m_next == m_datagrams.size() && m_isLooped) {
        m_next = 0;
        ++m_round;
    }
    return message;
}

std::string ReplaySource::FormatState(nanoseconds /*now*/) const {
    return FormatText("next is datagram %zu of %zu, round %" PRId64, m_next + 1, m_datagrams.size(), m_round + 1);
}

} // namespace sim
