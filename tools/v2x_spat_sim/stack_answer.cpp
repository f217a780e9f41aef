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

struct FreeMessage {
    void operator()(void* frame) const { v2xcodec_freeStrcut(&frame); }
};
using Message = std::unique_ptr<void, FreeMessage>;

// As used here, the codec's calls fail only when memory runs out.
void Must(int32_t result) {
    if (result != 0) {
        throw std::bad_alloc();
    }
}

// The codec multiplies by ten again, which is exact for a tenth of a whole number.
double Seconds(std::optional<uint16_t> tenths) {
    return tenths ? *tenths / 10.0 : -1;
}

// The codec truncates: half a step more keeps a rounding error from giving the step below.
double Confidence(std::optional<uint8_t> steps) {
    return steps ? (*steps + 0.5) / 200 : -1;
}

void AddState(GBSPATISPHASE_HANDLE phase, const PhaseState& from) {
    c_phaseState_t times{};
    times.stateMode = from.mode;
    times.lightState = from.light;
    times.startTime = Seconds(from.start);
    times.endTime = Seconds(from.end);
    times.opt_maxendTime = Seconds(from.maxEnd);
    times.opt_minendTime = Seconds(from.minEnd);
    times.opt_nextStartTime = Seconds(from.nextStart);
    times.opt_nextDuration = Seconds(from.nextDuration);
    times.opt_timeConfidence = Confidence(from.confidence);
    GBSPATISPHASESTATE_HANDLE state = nullptr;
    Must(v2xapp_GBMsgSPATSectionPhaseStateInit(&state));
    Must(v2xapp_GBMsgSPATSectionPhaseStateAdd(phase, state));
    v2xapp_GBMsgSPATSectionPhaseStateLightState(state, from.light); // a light that it rejects is not encoded either
    Must(v2xapp_GBMsgSPATSectionPhaseStatePhaseState(state, times));
}

void AddPhase(GBSPATIS_HANDLE intersection, const Phase& from) {
    GBSPATISPHASE_HANDLE phase = nullptr;
    Must(v2xapp_GBMsgSPATSectionPhaseInit(&phase));
    Must(v2xapp_GBMsgSPATSectionPhaseAdd(intersection, phase));
    Must(v2xapp_GBMsgSPATSectionPhaseId(phase, from.id));
    for (size_t at = 0; at < std::min(from.states.size(), MAX_SPAT_STATES); ++at) {
        AddState(phase, from.states[at]);
    }
}

void AddIntersection(GBSPAT_HANDLE spat, const SpatRecord& record) {
    GBSPATIS_HANDLE intersection = nullptr;
    Must(v2xapp_GBMsgSPATSectionInit(&intersection));
    Must(v2xapp_GBMsgSPATSectionAdd(spat, intersection));
    Must(v2xapp_GBMsgSPATSectionId(intersection, record.intersection));
    Must(v2xapp_GBMsgSPATSectionStatus(intersection, record.status));
    size_t phases = 0;
    for (const Phase& phase : record.phases) {
        if (!phase.states.empty() && phases < MAX_SPAT_PHASES) {
            AddPhase(intersection, phase);
            ++phases;
        }
    }
}

std::optional<Item> Encode(const Message& message) {
    Item bytes(INT16_MAX); // larger than any message
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
    Must(v2xapp_GBMsgSPATInit(&message, &spat));
    const Message owner(message);
    auto moy = static_cast<int32_t>(record.moy); // left out when it is not a minute of the year
    Must(getSPATMsgCnt(spat));
    Must(v2xapp_GBMsgSPATMoy(spat, &moy));
    Must(v2xapp_GBMsgSPATSecmark2(spat, record.secMark));
    AddIntersection(spat, record);
    return Encode(owner);
}

std::vector<Item> ParseFrames(const std::string& text, const std::string& name) {
    const size_t most = MAX_REPLY_PAYLOAD - ReplyPayload(std::vector<Item>(1));
    std::vector<Item> frames;
    EachLine(text, name, [&](std::string_view line) {
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
        throw std::runtime_error(name + ": holds no frame");
    }
    return frames;
}

void CheckAnswers(const AnswerOptions& options) {
    const size_t frames = options.frames.size();
    for (size_t first = 0; first < frames; ++first) {
        std::vector<Item> items;
        for (size_t index = 0; index < options.items; ++index) {
            items.push_back(options.frames[(first + index) % frames]);
        }
        if (const size_t payload = ReplyPayload(items); payload > MAX_REPLY_PAYLOAD) {
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

std::optional<std::vector<uint8_t>> Answerer::Answer(uint64_t now) {
    std::vector<Item> items = NextItems();
    if (items.empty()) {
        return std::nullopt;
    }
    if (const auto hit = m_damage.Next()) {
        return EncodeBadReply(std::move(items), now, static_cast<ReplyKind>(hit->kind), hit->random);
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
    m_kinds.Add(kind);
    m_items += items;
}

void Answerer::AddTo(Summary& summary) const {
    summary.Add("replies", m_kinds.All(), "replies" + m_kinds.Text());
    m_kinds.AddNumbers(summary);
    summary.Add("repliesBad", m_kinds.All() - m_kinds.Good());
    summary.Add("items", m_items, "items in them");
    summary.AddIfAny("withoutRecord", m_withoutRecord, "requests before any record");
    summary.AddIfAny("notEncoded", m_notEncoded, "requests about a record that cannot be encoded");
    summary.AddIfAny("replyErrors", m_errors, FormatText("send errors (%s)", std::strerror(m_lastError)));
}

} // namespace sim
