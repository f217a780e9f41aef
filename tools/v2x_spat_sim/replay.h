// Replays the messages of a capture with their timing.
#pragma once

#include <chrono>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "source.h"

namespace sim {

struct ReplayOptions {
    std::string file;      // pcap or pcapng; empty: no replay
    double speed = 1;      // 2 sends the messages twice as fast
    bool isLooped = false; // true repeats the replay
    uint16_t port = 0;     // destination port of the datagrams; 0: the port of the target
};

struct ReplayMessage {
    uint64_t time;     // microseconds since 1970
    std::string topic; // of a DDS sample; empty for a datagram
    std::vector<uint8_t> bytes;
};

// Returns the payloads of the captured datagrams to `port`. Ignores payloads that are empty or longer than
// MAX_DATAGRAM: the daemon drops them. Throws std::runtime_error "file: reason", and with the destination ports of the
// capture if it has no datagram to `port`. Prints a line to standard error about packets that it has ignored.
std::vector<ReplayMessage> LoadDatagrams(const std::string& file, uint16_t port);

// Returns the captured DDS samples that the daemon has received on the topics rsu/ID/spat/down, with any ID, and
// `statusTopic`. Replaces the topic rsu/ID/spat/down by `documentTopic`. Otherwise as LoadDatagrams.
std::vector<ReplayMessage> LoadSamples(const std::string& file, const std::string& documentTopic,
                                       const std::string& statusTopic);

// Sends the messages once or in a loop. The first message is due at the start of the run, each further message after
// the same delay as in the capture, divided by `speed`. If the clock of the capture steps back, the message is due at
// once. The next round starts one average gap after the last message. Without a gap, it starts 1 s after it.
class ReplaySource : public MessageSource {
public:
    // `messages` must contain at least one message.
    ReplaySource(std::vector<ReplayMessage> messages, double speed, bool isLooped);
    std::optional<std::chrono::nanoseconds> DueTime(std::chrono::nanoseconds now) override;
    std::vector<uint8_t> TakeNext() override;
    std::string FormatState(std::chrono::nanoseconds now) const override;

    // Returns the topic of the next message. Do not call NextTopic after the last message.
    const std::string& NextTopic() const { return m_messages[m_next].topic; }

private:
    std::vector<ReplayMessage> m_messages;
    std::vector<std::chrono::nanoseconds> m_dueTimes; // of each message in a round
    std::chrono::nanoseconds m_roundLength;
    bool m_isLooped;
    size_t m_next = 0;
    int64_t m_round = 0;
};

} // namespace sim
