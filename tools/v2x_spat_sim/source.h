// Where a simulator's datagrams come from, one after another, each with the time at which it is due.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "plan.h"
#include "replay.h"

namespace sim {

// Not for use by two threads at a time. Times count from the start of the run.
class DatagramSource {
public:
    virtual ~DatagramSource() = default;
    // When the next datagram is due; empty: there is none any more.
    virtual std::optional<std::chrono::nanoseconds> Due(std::chrono::nanoseconds now) = 0;
    // The datagram that is due, and on to the next. Only while Due() names a time.
    virtual std::vector<uint8_t> Take() = 0;
    // What the source says at this time, for people, in one line.
    virtual std::string State(std::chrono::nanoseconds now) const = 0;
};

// The signal plan, encoded `rate` times a second. Deadlines do not drift. When sending falls behind it catches up, but
// not on more than one second: what is older is left out, as a device would that was stopped.
class PlanSource : public DatagramSource {
public:
    using Encode = std::function<std::vector<uint8_t>(std::span<const PhaseLight> lights)>;

    // The run begins `start` into the plan.
    PlanSource(double rate, PhaseRange phases, std::chrono::nanoseconds start, Encode encode);
    std::optional<std::chrono::nanoseconds> Due(std::chrono::nanoseconds now) override;
    std::vector<uint8_t> Take() override;
    std::string State(std::chrono::nanoseconds now) const override;

private:
    std::chrono::nanoseconds Deadline() const;

    double m_rate;
    uint64_t m_index = 0;
    PhaseRange m_phases;
    std::chrono::nanoseconds m_start;
    Encode m_encode;
};

// A recording, once or again and again.
class ReplaySource : public DatagramSource {
public:
    ReplaySource(std::vector<ReplayDatagram> datagrams, bool loop);
    std::optional<std::chrono::nanoseconds> Due(std::chrono::nanoseconds now) override;
    std::vector<uint8_t> Take() override;
    std::string State(std::chrono::nanoseconds now) const override;

private:
    std::vector<ReplayDatagram> m_datagrams;
    std::chrono::nanoseconds m_roundLength;
    bool m_loop;
    size_t m_next = 0;
    int64_t m_round = 0;
};

} // namespace sim
