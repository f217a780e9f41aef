// Where a simulated device's messages come from, one after another, each with the time at which it is due.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "plan.h"

namespace sim {

// One thread at a time. Times count from the start of the run.
class MessageSource {
public:
    virtual ~MessageSource() = default;
    // When the next message is due; empty after the last one.
    virtual std::optional<std::chrono::nanoseconds> Due(std::chrono::nanoseconds now) = 0;
    // Returns the message that is due and moves on to the next. Only while Due() names a time.
    virtual std::vector<uint8_t> Take() = 0;
    // The source's state at this time in one line for people.
    virtual std::string State(std::chrono::nanoseconds now) const = 0;
};

// The signal plan, encoded `rate` times a second. Deadlines do not drift. A source that falls behind catches up, but
// skips what is more than one second late.
class PlanSource : public MessageSource {
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

inline constexpr size_t MAX_DATAGRAM = 32767; // bytes that the platform's UDP sockets receive

struct ReplayDatagram {
    std::chrono::milliseconds time; // since the start of the replay
    std::vector<uint8_t> bytes;     // 1 to MAX_DATAGRAM
};

// Parses the text of a replay file. Each line holds one datagram: milliseconds since the start, a blank, the bytes in
// hex. Times must not go back. `name` stands for the file in messages. Throws std::runtime_error "name:line: reason",
// or "name: reason" when the text holds no datagram.
std::vector<ReplayDatagram> ParseReplay(const std::string& text, const std::string& name);

// Recorded datagrams, once or in a loop. The next round starts one average gap after the last datagram, or 1 s after
// it when there is no gap.
class ReplaySource : public MessageSource {
public:
    // At least one datagram.
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
