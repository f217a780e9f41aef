// What the simulated stack application answers to requests for SPAT, and the count of it.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "damage.h"
#include "ipc_record.h"
#include "stack_reply.h"
#include "summary.h"

namespace sim {

struct AnswerOptions {
    std::vector<Item> frames; // to be sent in turn, from the first one again after the last; none: the last record
    size_t items = 1;         // frames in each reply
    double bad = 0;           // share of the replies, 0 to 1
    std::vector<ReplyKind> badKinds;
};

// Throws std::invalid_argument when a reply with that many of the frames would be too large.
void CheckAnswers(const AnswerOptions& options);

// One thread at a time.
class Answerer {
public:
    Answerer(const AnswerOptions& options, uint32_t seed);

    void OnRecord(const SpatRecord& record) { m_record = record; }

    // The reply to one request; empty when there is nothing to tell, which is counted. `now` in microseconds since
    // 1970.
    std::optional<std::vector<uint8_t>> Answer(uint64_t now);

    // How sending the reply ended: 0 or the error number.
    void Sent(const std::vector<uint8_t>& reply, int error);

    void AddTo(Summary& summary) const;

private:
    std::vector<Item> NextItems();
    std::string KindsText() const;

    AnswerOptions m_options;
    DamageShare m_damage;
    size_t m_next = 0;
    std::optional<SpatRecord> m_record;
    uint64_t m_replies = 0;
    std::array<uint64_t, REPLY_KINDS> m_byKind{};
    uint64_t m_items = 0;
    uint64_t m_withoutRecord = 0;
    uint64_t m_notEncoded = 0;
    uint64_t m_errors = 0;
    int m_lastError = 0;
};

} // namespace sim
