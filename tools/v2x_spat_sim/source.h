// Sources of a simulated device's messages: the signal plan and a replay of recorded datagrams.
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

struct ReplayDatagram {
    std::chrono::milliseconds time; // since the start of the replay
    std::vector<uint8_t> bytes;     // 1 to MAX_DATAGRAM bytes
};

// Parses the text of a replay file. Each line has one datagram: milliseconds since the start, a blank, the bytes in
// hex. A time must not be earlier than the time on the line above. `name` is the file's name for error messages. Throws
// std::runtime_error "name:line: reason" for an invalid line, or "name: reason" if the text has no datagram.
std::vector<ReplayDatagram> ParseReplay(const std::string& text, const std::string& name);

// Replays recorded datagrams once or in a loop. The next round starts one average gap after the last datagram. Without
// a gap, the next round starts 1 s after the last datagram.
class ReplaySource : public MessageSource {
public:
    // `datagrams` must contain at least one datagram.
    ReplaySource(std::vector<ReplayDatagram> datagrams, bool isLooped);
    std::optional<std::chrono::nanoseconds> DueTime(std::chrono::nanoseconds now) override;
    std::vector<uint8_t> TakeNext() override;
    std::string FormatState(std::chrono::nanoseconds now) const override;

private:
    std::vector<ReplayDatagram> m_datagrams;
    std::chrono::nanoseconds m_roundLength;
    bool m_isLooped;
    size_t m_next = 0;
    int64_t m_round = 0;
};

} // namespace sim
