// The simulated stack application's answers to requests for SPAT: encoded messages from a file, or a message that holds
// the last record.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "damage.h"
#include "ipc_record.h"
#include "stack_reply.h"
#include "summary.h"

namespace sim {

// The most that one message can hold.
inline constexpr size_t MAX_SPAT_PHASES = 16;
inline constexpr size_t MAX_SPAT_STATES = 16; // of a phase

// A SPAT message of one intersection with the record's id, status, time, and phases that have states; times count down.
// Phases and states beyond the maximum are left out. Empty when the record cannot be encoded: it has no phase with
// states, or a light or a time that the message set does not have.
std::optional<Item> BuildSpat(const SpatRecord& record);

// Parses the text of a file with encoded messages, a frame in hex on each line. `name` stands for the file in messages.
// Throws std::runtime_error "name:line: reason", or "name: reason" when the text holds no frame.
std::vector<Item> ParseFrames(const std::string& text, const std::string& name);

struct AnswerOptions {
    std::vector<Item> frames; // sent in turn and from the first again; the last record when there are none
    size_t items = 1;         // frames in each reply
    DamageOptions damage;     // by ReplyKind
};

// Throws std::runtime_error when a reply with that many of the frames would be too large.
void CheckAnswers(const AnswerOptions& options);

// One thread at a time.
class Answerer {
public:
    Answerer(const AnswerOptions& options, uint32_t seed);

    void OnRecord(const SpatRecord& record) { m_record = record; }

    // The reply to one request; empty when there is nothing to answer with, which is counted. `now` in microseconds
    // since 1970.
    std::optional<std::vector<uint8_t>> Answer(uint64_t now);

    // Counts the reply. `error` is 0, or the error number when it could not be sent.
    void Sent(const std::vector<uint8_t>& reply, int error);

    void AddTo(Summary& summary) const;

private:
    std::vector<Item> NextItems();

    AnswerOptions m_options;
    DamageShare m_damage;
    size_t m_next = 0;
    std::optional<SpatRecord> m_record;
    KindCount m_kinds{REPLY_KINDS};
    uint64_t m_items = 0;
    uint64_t m_withoutRecord = 0;
    uint64_t m_notEncoded = 0;
    uint64_t m_errors = 0;
    int m_lastError = 0;
};

} // namespace sim
