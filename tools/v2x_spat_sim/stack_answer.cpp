#include "stack_answer.h"

#include <algorithm>
#include <cinttypes>
#include <cstring>
#include <stdexcept>

#include "spat_build.h"
#include "text.h"

namespace sim {
namespace {

struct KindName {
    const char* key;
    const char* text;
};
constexpr std::array<KindName, REPLY_KINDS> KINDS = {{
    {"repliesGood", "good"},
    {"repliesShort", "short"},
    {"repliesHead", "wrong head"},
    {"repliesLength", "wrong length"},
    {"repliesLarge", "too large"},
    {"repliesCommand", "wrong command"},
    {"repliesType", "wrong type"},
    {"repliesNumber", "wrong number"},
    {"repliesCut", "cut item"},
    {"repliesGarbage", "garbage"},
    {"repliesTrailing", "trailing bytes"},
}};

} // namespace

void CheckAnswers(const AnswerOptions& options) {
    const size_t frames = options.frames.size();
    for (size_t first = 0; first < frames; ++first) {
        std::vector<Item> items;
        for (size_t index = 0; index < options.items; ++index) {
            items.push_back(options.frames[(first + index) % frames]);
        }
        if (const size_t payload = ReplyPayload(items); payload > MAX_REPLY_PAYLOAD) {
            throw std::invalid_argument(FormatText("%zu frames from frame %zu on make a reply of %zu bytes; at most "
                                                   "%zu are taken",
                                                   options.items, first + 1, payload, MAX_REPLY_PAYLOAD));
        }
    }
}

Answerer::Answerer(const AnswerOptions& options, uint32_t seed)
    : m_options(options), m_damage(options.bad, std::max<size_t>(options.badKinds.size(), 1), seed) {}

std::vector<Item> Answerer::NextItems() {
    std::vector<Item> items;
    if (!m_options.frames.empty()) {
        while (items.size() < m_options.items) {
            items.push_back(m_options.frames[m_next]);
            m_next = (m_next + 1) % m_options.frames.size();
        }
    } else if (!m_record) {
        ++m_withoutRecord;
    } else if (auto frame = BuildSpat(*m_record)) {
        items.push_back(std::move(*frame));
    } else {
        ++m_notEncoded;
    }
    return items;
}

std::optional<std::vector<uint8_t>> Answerer::Answer(uint64_t now) {
    std::vector<Item> items = NextItems();
    if (items.empty()) {
        return std::nullopt;
    }
    if (const auto hit = m_damage.Next()) {
        return EncodeBadReply(std::move(items), now, m_options.badKinds[hit->kind], hit->random);
    }
    return EncodeReply(items, now);
}

void Answerer::Sent(const std::vector<uint8_t>& reply, int error) {
    if (error != 0) {
        ++m_errors;
        m_lastError = error;
        return;
    }
    const auto [kind, items] = ReadReply(reply);
    ++m_replies;
    ++m_byKind[static_cast<size_t>(kind)];
    m_items += items;
}

std::string Answerer::KindsText() const {
    std::string text;
    for (size_t kind = 0; kind < REPLY_KINDS; ++kind) {
        if (m_byKind[kind] != 0) {
            text += FormatText("%s%" PRIu64 " %s", text.empty() ? "" : ", ", m_byKind[kind], KINDS[kind].text);
        }
    }
    return text.empty() ? "" : " (" + text + ")";
}

void Answerer::AddTo(Summary& summary) const {
    summary.text +=
        FormatText(", %" PRIu64 " replies%s with %" PRIu64 " items", m_replies, KindsText().c_str(), m_items);
    summary.numbers.emplace_back("replies", m_replies);
    for (size_t kind = 0; kind < REPLY_KINDS; ++kind) {
        summary.numbers.emplace_back(KINDS[kind].key, m_byKind[kind]);
    }
    summary.numbers.emplace_back("repliesBad", m_replies - m_byKind[static_cast<size_t>(ReplyKind::good)]);
    summary.numbers.emplace_back("items", m_items);
    const struct {
        const char* key;
        std::string text;
        uint64_t count;
    } extras[] = {
        {"withoutRecord", "requests before any record", m_withoutRecord},
        {"notEncoded", "requests about a record that cannot be encoded", m_notEncoded},
        {"replyErrors", FormatText("replies refused (%s)", std::strerror(m_lastError)), m_errors},
    };
    for (const auto& [key, text, count] : extras) {
        summary.numbers.emplace_back(key, count);
        if (count != 0) {
            summary.text += FormatText(", %" PRIu64 " %s", count, text.c_str());
        }
    }
}

} // namespace sim
