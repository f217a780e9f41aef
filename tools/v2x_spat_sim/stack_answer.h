// Makes the simulated stack application's replies to requests for SPAT. The items of a reply are encoded messages from
// a file, or one message with the content of the last record.
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

// The maximum numbers of a message.
inline constexpr size_t MAX_SPAT_PHASES = 16;
inline constexpr size_t MAX_SPAT_STATES = 16; // per phase

// Encodes the record as a SPAT message of one intersection. The times count down. Omits phases without states, and
// phases and states beyond the maximum. Returns an empty optional if the record cannot be encoded: no phase has a
// state, or a light or a time is outside the range of the message set.
std::optional<Item> BuildSpat(const SpatRecord& record);

// Parses the text of a file with one encoded message in hex on each line. `name` is the file's name for error messages.
// Throws std::runtime_error "name:line: reason" for an invalid line, or "name: reason" if the text has no message.
std::vector<Item> ParseFrames(const std::string& text, const std::string& name);

struct AnswerOptions {
    std::vector<Item> frames; // sent one after another in a loop; if empty, the last record is sent
    size_t items = 1;         // number of frames per reply
    DamageOptions damage;     // kinds are values of ReplyKind
};

// Throws std::runtime_error if a reply with `options.items` consecutive frames would exceed MAX_REPLY_PAYLOAD.
void CheckReplySize(const AnswerOptions& options);

// Makes replies and counts them. One thread at a time.
class Answerer {
public:
    Answerer(const AnswerOptions& options, uint32_t seed);

    void OnRecord(const SpatRecord& record) { m_record = record; }

    // Returns the reply to one request. Returns an empty optional, and counts the request, if there is no record or if
    // the record cannot be encoded. `now` is in microseconds since 1970.
    std::optional<std::vector<uint8_t>> MakeReply(uint64_t now);

    // Counts the reply as sent if `error` is 0. Otherwise `error` is the error number of the failed send.
    void CountSent(const std::vector<uint8_t>& reply, int error);

    void AddCounts(Summary& summary) const;

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
