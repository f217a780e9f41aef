#include "ipc_record.h"

#include <cstring>

#include "text.h"
#include "v2x/v2xipc_data.h"

namespace sim {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t HEADS_SIZE = sizeof(v2xipc_dataHead_t) + sizeof(v2xipc_rsuData_t);

// Copies a wire record from the front of `rest` and moves on; false when there is not all of it.
template <typename Record>
bool Take(Bytes& rest, Record& record) {
    if (rest.size() < sizeof record) {
        return false;
    }
    std::memcpy(&record, rest.data(), sizeof record);
    rest = rest.subspan(sizeof record);
    return true;
}

// An optional field is absent when all its bits are set, of whatever type it is declared.
template <typename Value, typename Field>
std::optional<Value> Optional(Field field) {
    return field == -1 ? std::nullopt : std::optional(static_cast<Value>(field));
}

PhaseState Convert(const v2xipc_pahseState_t& wire) {
    PhaseState state{};
    state.mode = wire.m_stateMode;
    state.light = wire.m_lightState;
    state.start = wire.m_startTime;
    state.end = wire.m_endTime;
    state.maxEnd = Optional<uint16_t>(wire.m_opt_maxendTime);
    state.minEnd = Optional<uint16_t>(wire.m_opt_minendTime);
    state.nextStart = Optional<uint16_t>(wire.m_opt_nextStartTime);
    state.nextDuration = Optional<uint16_t>(wire.m_opt_nextDuration);
    state.confidence = Optional<uint8_t>(wire.m_opt_timeConfidence);
    return state;
}

// Reads one entry; false when it lies partly outside.
bool TakePhase(Bytes& rest, Phase& phase) {
    v2xipc_phase_t head{};
    if (!Take(rest, head)) {
        return false;
    }
    phase.id = head.m_phaseId;
    phase.states.reserve(head.m_phaseStateNum);
    for (int number = 0; number < head.m_phaseStateNum; ++number) {
        v2xipc_pahseState_t state{};
        if (!Take(rest, state)) {
            return false;
        }
        phase.states.push_back(Convert(state));
    }
    return true;
}

Frame ReadRecord(Bytes rest, uint64_t sendTime) {
    v2xipc_phases_t fixed{};
    if (!Take(rest, fixed)) {
        return Refusal{Rung::record, FormatText("%zu bytes are less than a record's fixed part", rest.size())};
    }
    SpatRecord record{
        sendTime, fixed.m_intersectionId, fixed.m_status, fixed.m_moy, fixed.m_secMark, fixed.m_phaseNum, {}, 0};
    for (int number = 0; number < fixed.m_phaseNum; ++number) {
        Phase phase{};
        if (!TakePhase(rest, phase)) {
            return Refusal{Rung::record, FormatText("phase entry %d of %d reaches beyond the record", number + 1,
                                                    int{fixed.m_phaseNum})};
        }
        if (phase.id == 0 && phase.states.empty()) {
            ++record.emptyEntries;
        } else {
            record.phases.push_back(std::move(phase));
        }
    }
    if (!rest.empty()) {
        return Refusal{Rung::record,
                       FormatText("%zu bytes follow the %d phase entries", rest.size(), int{fixed.m_phaseNum})};
    }
    return record;
}

// The rungs from the lengths to the data type; empty when all hold.
std::optional<Refusal> CheckHead(const v2xipc_dataHead_t& head, const v2xipc_rsuData_t& block, size_t payload) {
    if (std::memcmp(head.m_headFlag, V2XIPC_HEAD_FLAG, sizeof head.m_headFlag) != 0) {
        return Refusal{Rung::flag,
                       FormatText("the frame begins with %02X %02X", head.m_headFlag[0], head.m_headFlag[1])};
    }
    if (head.m_packLen != payload) {
        return Refusal{Rung::packLen, FormatText("the header says %u, %zu bytes follow it", head.m_packLen, payload)};
    }
    if (head.m_cmdType != V2XIPC_CMD_TO_STACK) {
        return Refusal{Rung::cmd, FormatText("command %u", head.m_cmdType)};
    }
    if (block.m_dataType != V2XIPC_DATA_SPAT_RECORD && block.m_dataType != V2XIPC_DATA_SPAT_UPER) {
        return Refusal{Rung::dataType, FormatText("data type %d", block.m_dataType)};
    }
    return std::nullopt;
}

// The rungs that depend on the data type, but for the record's inside.
std::optional<Refusal> CheckBlock(const v2xipc_rsuData_t& block, size_t data) {
    const bool isRecord = block.m_dataType == V2XIPC_DATA_SPAT_RECORD;
    if (isRecord && block.m_dataNo != V2XIPC_DATA_NO_SPAT_RECORD) {
        return Refusal{Rung::dataNo, FormatText("data number %d beside a record", block.m_dataNo)};
    }
    if (block.m_dataLen != data) {
        return Refusal{Rung::dataLen, FormatText("the data block says %u, %zu bytes follow it", block.m_dataLen, data)};
    }
    if (!isRecord && data != 0) {
        return Refusal{Rung::dataLen, FormatText("a request with %zu bytes of data", data)};
    }
    return std::nullopt;
}

} // namespace

const char* RungName(Rung rung) {
    constexpr const char* NAMES[] = {"length", "flag", "packLen", "cmd", "dataType", "dataNo", "dataLen", "record"};
    static_assert(std::size(NAMES) == RUNGS && static_cast<size_t>(Rung::record) == RUNGS - 1);
    return NAMES[static_cast<size_t>(rung)];
}

Frame ReadFrame(Bytes datagram) {
    Bytes rest = datagram;
    v2xipc_dataHead_t head{};
    v2xipc_rsuData_t block{};
    if (!Take(rest, head) || !Take(rest, block)) {
        return Refusal{Rung::length, FormatText("%zu bytes, a frame has at least %zu", datagram.size(), HEADS_SIZE)};
    }
    if (std::optional<Refusal> refusal = CheckHead(head, block, datagram.size() - sizeof head)) {
        return std::move(*refusal);
    }
    if (std::optional<Refusal> refusal = CheckBlock(block, rest.size())) {
        return std::move(*refusal);
    }
    if (block.m_dataType == V2XIPC_DATA_SPAT_UPER) {
        return SpatRequest{};
    }
    return ReadRecord(rest, head.m_sendTime64);
}

} // namespace sim
