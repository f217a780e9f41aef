#include "spat_build.h"

#include <algorithm>
#include <memory>
#include <new>

#include "v2xapp_gbspat.h"
#include "v2xapp_upercodec.h"

namespace sim {
namespace {

struct FreeMessage {
    void operator()(void* frame) const { v2xcodec_freeStrcut(&frame); }
};
using Message = std::unique_ptr<void, FreeMessage>;

// The builder's calls fail for lack of memory alone, as they are used here.
void Must(int32_t result) {
    if (result != 0) {
        throw std::bad_alloc();
    }
}

// The builder divides and multiplies back: a tenth of a whole number times ten is that number again.
double Seconds(std::optional<uint16_t> tenths) {
    return tenths ? *tenths / 10.0 : -1;
}

// The half keeps the builder, which cuts off the fraction, from the step below.
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
    v2xapp_GBMsgSPATSectionPhaseStateLightState(state, from.light); // encoding refuses what it refuses
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

std::optional<std::vector<uint8_t>> Encode(const Message& message) {
    std::vector<uint8_t> bytes(INT16_MAX); // more than the largest one
    int16_t size = 0;
    if (v2xcodec_uperEnc(message.get(), bytes.data(), static_cast<int32_t>(bytes.size()), &size) != 0) {
        return std::nullopt;
    }
    bytes.resize(static_cast<size_t>(size));
    return bytes;
}

} // namespace

std::optional<std::vector<uint8_t>> BuildSpat(const SpatRecord& record) {
    GBMSG_HANDLE message = nullptr;
    GBSPAT_HANDLE spat = nullptr;
    Must(v2xapp_GBMsgSPATInit(&message, &spat));
    const Message owner(message);
    auto moy = static_cast<int32_t>(record.moy); // absent when there is no such minute
    Must(getSPATMsgCnt(spat));
    Must(v2xapp_GBMsgSPATMoy(spat, &moy));
    Must(v2xapp_GBMsgSPATSecmark2(spat, record.secMark));
    AddIntersection(spat, record);
    return Encode(owner);
}

} // namespace sim
