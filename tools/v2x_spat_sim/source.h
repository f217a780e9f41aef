// Source of a simulated device's messages, and the signal plan as a source.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <vector>

#include "fault.h"
#include "plan.h"

namespace sim {

// Makes messages one after another, each with the time at which the message is due. Times are relative to the start of
// the run. One thread at a time.
class MessageSource {
public:
    virtual ~MessageSource() = default;
    // Returns when the next message is due, or an empty optional after the last message.
    virtual std::optional<std::chrono::nanoseconds> DueTime(std::chrono::nanoseconds now) = 0;
    // Returns the next message and advances to the one after it. An empty message must not be sent. Do not call
    // TakeNext after the last message.
    virtual std::vector<uint8_t> TakeNext() = 0;
    // Returns one line for people about the source's state at the time `now`.
    virtual std::string FormatState(std::chrono::nanoseconds now) const = 0;
};

// Encodes the signal plan `rate` times a second, without drift. After a delay the source catches up, but skips messages
// that are more than one second late.
class PlanSource : public MessageSource {
public:
    using Encode = std::function<std::vector<uint8_t>(std::span<const PhaseLight> lights)>;

    // `start` is the time in the plan at which the run begins. `encode` also gets the additional lights of faults.
    PlanSource(double rate, PhaseRange phases, std::chrono::nanoseconds start, Encode encode,
               const FaultOptions& faults);
    std::optional<std::chrono::nanoseconds> DueTime(std::chrono::nanoseconds now) override;
    std::vector<uint8_t> TakeNext() override;
    std::string FormatState(std::chrono::nanoseconds now) const override;

private:
    std::chrono::nanoseconds Deadline() const;

    double m_rate;
    uint64_t m_index = 0;
    PhaseRange m_phases;
    std::chrono::nanoseconds m_start;
    Encode m_encode;
    FaultInjector m_faults;
};

inline constexpr size_t MAX_DATAGRAM = 32767; // bytes; the platform's UDP sockets drop longer datagrams

} // namespace sim
