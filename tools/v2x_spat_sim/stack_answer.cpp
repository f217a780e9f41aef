#include "stack_answer.h"

#include <algorithm>
#include <cstring>
#include <memory>
#include <new>
#include <stdexcept>
#include <utility>

#include "common/hex.h"
#include "text.h"
#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

namespace sim {
namespace {

struct MessageDeleter {
    void operator()(void* frame) const { v2xcodec_freeStrcut(&frame); }
};
using Message = std::unique_ptr<void, MessageDeleter>;

// The arguments in this file are valid, so that the codec's calls fail only if memory is exhausted.
void ThrowIfFailed(int32_t result) {
    if (result != 0) {
        throw std::bad_alloc();
    }
}

// Returns seconds, or -1 for an absent time. The codec multiplies the seconds by ten and gets the exact tenths.
double ToSeconds(std::optional<uint16_t> tenths) {
    return tenths ? *tenths / 10.0 : -1;
}

// Returns a confidence from 0 to 1, or -1 for an absent confidence. The codec truncates to steps of 1/200. The
// additional half step keeps a rounding error from lowering the confidence.
double ToConfidence(std::optional<uint8_t> steps) {
    return steps ? (*steps + 0.5) / 200 : -1;
}

void AddState(GBSPATISPHASE_HANDLE phase, const PhaseState& from) {
    c_phaseState_t times{};
    times.stateMode = from.mode;
    times.lightState = from.light;
    times.startTime = ToSeconds(from.start);
    times.endTime = ToSeconds(from.end);
    times.opt_maxendTime = ToSeconds(from.maxEnd);
    times.opt_minendTime = ToSeconds(from.minEnd);
    times.opt_nextStartTime = ToSeconds(from.nextStart);
    times.opt_nextDuration = ToSeconds(from.nextDuration);
    times.opt_timeConfidence = ToConfidence(from.confidence);
    GBSPATISPHASESTATE_HANDLE state = nullptr;
    ThrowIfFailed(v2xapp_GBMsgSPATSectionPhaseStateInit(&state));
    ThrowIfFailed(v2xapp_GBMsgSPATSectionPhaseStateAdd(phase, state));
    v2xapp_GBMsgSPATSectionPhaseStateLightState(state, from.light); // for an invalid light, encoding fails later
    ThrowIfFailed(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, times));
}

void AddPhase(GBSPATIS_HANDLE intersection, const Phase& from) {
    GBSPATISPHASE_HANDLE phase = nullptr;
    ThrowIfFailed(v2xapp_GBMsgSPATSectionPhaseInit(&phase));
    ThrowIfFailed(v2xapp_GBMsgSPATSectionPhaseAdd(intersection, phase));
    ThrowIfFailed(v2xapp_GBMsgSPATSectionPhaseId(phase, from.id));
    for (size_t at = 0; at < std::min(from.states.size(), MAX_SPAT_STATES); ++at) {
        AddState(phase, from.states[at]);
    }
}

void AddIntersection(GBSPAT_HANDLE spat, const SpatRecord& record) {
    GBSPATIS_HANDLE intersection = nullptr;
    ThrowIfFailed(v2xapp_GBMsgSPATSectionInit(&intersection));
    ThrowIfFailed(v2xapp_GBMsgSPATSectionAdd(spat, intersection));
    ThrowIfFailed(v2xapp_GBMsgSPATSectionId(intersection, record.intersection));
    ThrowIfFailed(v2xapp_GBMsgSPATSectionStatus(intersection, record.status));
    size_t phases = 0;
    for (const Phase& phase : record.phases) {
        if (!phase.states.empty() && phases < MAX_SPAT_PHASES) {
            AddPhase(intersection, phase);
            ++phases;
        }
    }
}

std::optional<Item> Encode(const Message& message) {
    Item bytes(INT16_MAX); // no message is longer
    int16_t size = 0;
    if (v2xcodec_uperEnc(message.get(), bytes.data(), static_cast<int32_t>(bytes.size()), &size) != 0) {
        return std::nullopt;
    }
    bytes.resize(static_cast<size_t>(size));
    return bytes;
}

} // namespace

std::optional<Item> BuildSpat(const SpatRecord& record) {
    GBMSG_HANDLE message = nullptr;
    GBSPAT_HANDLE spat = nullptr;
    ThrowIfFailed(v2xapp_GBMsgSPATInit(&message, &spat));
    const Message owner(message);
    auto moy = static_cast<int32_t>(record.moy); // the codec omits an invalid minute
    ThrowIfFailed(getSPATMsgCnt(spat));
    ThrowIfFailed(v2xapp_GBMsgSPATMoy(spat, &moy));
    ThrowIfFailed(v2xapp_GBMsgSPATSecmark2(spat, record.secMark));
    AddIntersection(spat, record);
    return Encode(owner);
}

std::vector<Item> ParseFrames(const std::string& text, const std::string& name) {
    const size_t most = MAX_REPLY_PAYLOAD - MeasurePayload(std::vector<Item>(1));
    std::vector<Item> frames;
    ForEachLine(text, name, [&](std::string_view line) {
        Item frame;
        const std::string problem = tools::AppendHex(line, frame);
        if (!problem.empty()) {
            throw std::invalid_argument(problem);
        }
        if (frame.empty() || frame.size() > most) {
            throw std::invalid_argument(FormatText("%zu bytes; a frame has 1 to %zu", frame.size(), most));
        }
        frames.push_back(std::move(frame));
    });
    if (frames.empty()) {
        throw std::runtime_error(name + ": the file has no frame");
    }
    return frames;
}

void CheckReplySize(const AnswerOptions& options) {
    const size_t frames = options.frames.size();
    for (size_t first = 0; first < frames; ++first) {
        std::vector<Item> items;
        for (size_t index = 0; index < options.items; ++index) {
            items.push_back(options.frames[(first + index) % frames]);
        }
        if (const size_t payload = MeasurePayload(items); payload > MAX_REPLY_PAYLOAD) {
            throw std::runtime_error(FormatText("a reply of %zu frames from frame %zu on has %zu bytes; the daemon "
                                                "accepts %zu",
                                                options.items, first + 1, payload, MAX_REPLY_PAYLOAD));
        }
    }
}

Answerer::Answerer(const AnswerOptions& options, uint32_t seed) : m_options(options), m_damage(options.damage, seed) {}

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

std::optional<std::vector<uint8_t>> Answerer::MakeReply(uint64_t now) {
    std::vector<Item> items = NextItems();
    if (items.empty()) {
        return std::nullopt;
    }
    if (const auto hit = m_damage.Next()) {
        return EncodeBadReply(std::move(items), now, static_cast<ReplyKind>(hit->kind), hit->random);
    }
    return EncodeReply(items, now);
}

void Answerer::CountSent(const std::vector<uint8_t>& reply, int error) {
    if (error != 0) {
        ++m_errors;
        m_lastError = error;
        return;
    }
    const auto [kind, items] = ReadReply(reply);
    m_kinds.Add(kind);
    m_items += items;
}

void Answerer::AddCounts(Summary& summary) const {
    summary.Add("replies", m_kinds.Total(), "replies" + m_kinds.Text());
    m_kinds.AddNumbers(summary);
    summary.Add("repliesBad", m_kinds.Total() - m_kinds.Good());
    summary.Add("items", m_items, "items in these replies");
    summary.AddIfAny("withoutRecord", m_withoutRecord, "requests before the first record");
    summary.AddIfAny("notEncoded", m_notEncoded, "requests about a record that cannot be encoded");
    summary.AddIfAny("replyErrors", m_errors, FormatText("send errors (%s)", std::strerror(m_lastError)));
}

} // namespace sim
