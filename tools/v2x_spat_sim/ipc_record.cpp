#include "ipc_record.h"

#include <cstring>
#include <iterator>
#include <utility>

#include "text.h"
#include "v2x/v2xipc_data.h"

namespace sim {
namespace {

using Bytes = std::span<const uint8_t>;

constexpr size_t HEADS_SIZE = sizeof(v2xipc_dataHead_t) + sizeof(v2xipc_rsuData_t);

// Copies a wire record from the start of `rest` and removes the record from `rest`. Returns false if `rest` is too
// short.
template <typename Record>
bool TakeRecord(Bytes& rest, Record& record) {
    if (rest.size() < sizeof record) {
        return false;
    }
    std::memcpy(&record, rest.data(), sizeof record);
    rest = rest.subspan(sizeof record);
    return true;
}

// Returns an empty optional if all bits of the field are set, which means absent.
template <typename Value, typename Field>
std::optional<Value> ToOptional(Field field) {
    return field == -1 ? std::nullopt : std::optional(static_cast<Value>(field));
}

PhaseState ConvertState(const v2xipc_pahseState_t& wire) {
    PhaseState state{};
    state.mode = wire.m_stateMode;
    state.light = wire.m_lightState;
    state.start = wire.m_startTime;
    state.end = wire.m_endTime;
    state.maxEnd = ToOptional<uint16_t>(wire.m_opt_maxendTime);
    state.minEnd = ToOptional<uint16_t>(wire.m_opt_minendTime);
    state.nextStart = ToOptional<uint16_t>(wire.m_opt_nextStartTime);
    state.nextDuration = ToOptional<uint16_t>(wire.m_opt_nextDuration);
    state.confidence = ToOptional<uint8_t>(wire.m_opt_timeConfidence);
    return state;
}

// Reads one phase entry. Returns false if the entry extends beyond the record.
bool TakePhase(Bytes& rest, Phase& phase) {
    v2xipc_phase_t head{};
    if (!TakeRecord(rest, head)) {
        return false;
    }
    phase.id = head.m_phaseId;
    phase.states.reserve(head.m_phaseStateNum);
    for (int number = 0; number < head.m_phaseStateNum; ++number) {
        v2xipc_pahseState_t state{};
        if (!TakeRecord(rest, state)) {
            return false;
        }
        phase.states.push_back(ConvertState(state));
    }
    return true;
}

Frame ReadRecord(Bytes rest, uint64_t sendTime) {
    v2xipc_phases_t fixed{};
    if (!TakeRecord(rest, fixed)) {
        return Rejection{Fault::record,
                         FormatText("%zu bytes, a record's fixed part has %zu", rest.size(), sizeof fixed)};
    }
    SpatRecord record{
        sendTime, fixed.m_intersectionId, fixed.m_status, fixed.m_moy, fixed.m_secMark, fixed.m_phaseNum, {}, 0};
    for (int number = 0; number < fixed.m_phaseNum; ++number) {
        Phase phase{};
        if (!TakePhase(rest, phase)) {
            return Rejection{Fault::record, FormatText("phase entry %d of %d extends beyond the record", number + 1,
                                                       int{fixed.m_phaseNum})};
        }
        if (phase.id == 0 && phase.states.empty()) {
            ++record.emptyEntries;
        } else {
            record.phases.push_back(std::move(phase));
        }
    }
    if (!rest.empty()) {
        return Rejection{Fault::record,
                         FormatText("%zu bytes follow the %d phase entries", rest.size(), int{fixed.m_phaseNum})};
    }
    return record;
}

// Checks the fields from the flag to the data type. Returns an empty optional if all are valid.
std::optional<Rejection> CheckHead(const v2xipc_dataHead_t& head, const v2xipc_rsuData_t& block, size_t payload) {
    if (std::memcmp(head.m_headFlag, V2XIPC_HEAD_FLAG, sizeof head.m_headFlag) != 0) {
        return Rejection{Fault::flag,
                         FormatText("the frame begins with %02X %02X", head.m_headFlag[0], head.m_headFlag[1])};
    }
    if (head.m_packLen != payload) {
        return Rejection{Fault::packLen,
                         FormatText("the header's length is %u, but %zu bytes follow", head.m_packLen, payload)};
    }
    if (head.m_cmdType != V2XIPC_CMD_TO_STACK) {
        return Rejection{Fault::cmd, FormatText("command %u", head.m_cmdType)};
    }
    if (block.m_dataType != V2XIPC_DATA_SPAT_RECORD && block.m_dataType != V2XIPC_DATA_SPAT_UPER) {
        return Rejection{Fault::dataType, FormatText("data type %d", block.m_dataType)};
    }
    return std::nullopt;
}

// Checks number and length of the data, which depend on the data type. Returns an empty optional if both are valid.
std::optional<Rejection> CheckBlock(const v2xipc_rsuData_t& block, size_t data) {
    const bool isRecord = block.m_dataType == V2XIPC_DATA_SPAT_RECORD;
    if (isRecord && block.m_dataNo != V2XIPC_DATA_NO_SPAT_RECORD) {
        return Rejection{Fault::dataNo, FormatText("data number %d with a record", block.m_dataNo)};
    }
    if (block.m_dataLen != data) {
        return Rejection{Fault::dataLen,
                         FormatText("the data block's length is %u, but %zu bytes follow", block.m_dataLen, data)};
    }
    if (!isRecord && data != 0) {
        return Rejection{Fault::dataLen, FormatText("a request with %zu bytes of data", data)};
    }
    return std::nullopt;
}

// Returns "permissive green", for example, or "light 9" for an unknown code.
std::string FormatLight(uint8_t light) {
    constexpr const char* NAMES[] = {
        "unavailable",     "dark",   "flashing red",   "red", "flashing green", "permissive green",
        "protected green", "yellow", "flashing yellow"};
    static_assert(std::size(NAMES) == V2XIPC_LIGHT_FLASHING_YELLOW + 1);
    return light < std::size(NAMES) ? NAMES[light] : FormatText("light %u", light);
}

std::string FormatSeconds(uint16_t tenths) {
    return tenths == V2XIPC_TIME_UNKNOWN ? "unknown" : FormatText("%u.%u s", tenths / 10, tenths % 10);
}

// Formats time of day and intersection: "12:34:56.789  1/2". Shows dashes for an absent minute or millisecond.
std::string FormatRecordHead(const SpatRecord& record) {
    const uint32_t minute = record.moy % (24 * 60);
    const std::string minuteText =
        record.moy == NO_MINUTE ? "--:--" : FormatText("%02u:%02u", minute / 60, minute % 60);
    const std::string secondText = record.secMark == NO_MILLISECOND
                                       ? "--.---"
                                       : FormatText("%02u.%03u", record.secMark / 1000, record.secMark % 1000);
    return FormatText("%s:%s  %u/%u", minuteText.c_str(), secondText.c_str(), record.intersection >> 16,
                      record.intersection & 0xFFFF);
}

// Formats the current state in columns, then the later states.
std::string FormatStates(const std::vector<PhaseState>& states) {
    if (states.empty()) {
        return "no state";
    }
    const PhaseState& first = states.front();
    std::string line = FormatText("%-16s  %7s", FormatLight(first.light).c_str(), FormatSeconds(first.end).c_str());
    if (first.start != 0) {
        line += FormatText(" (from %s)", FormatSeconds(first.start).c_str());
    }
    for (size_t at = 1; at < states.size(); ++at) {
        line += FormatText(", then %s %s to %s", FormatLight(states[at].light).c_str(),
                           FormatSeconds(states[at].start).c_str(), FormatSeconds(states[at].end).c_str());
    }
    return line;
}

void AddTime(cJSON* object, const char* key, uint16_t tenths) {
    if (tenths == V2XIPC_TIME_UNKNOWN) {
        cJSON_AddNullToObject(object, key);
    } else {
        AddNumber(object, key, tenths);
    }
}

void AddState(cJSON* states, const PhaseState& state) {
    cJSON* const object = AddObject(states);
    AddNumber(object, "mode", state.mode);
    cJSON_AddStringToObject(object, "light", FormatLight(state.light).c_str());
    AddNumber(object, "lightCode", state.light);
    AddTime(object, "start", state.start);
    AddTime(object, "end", state.end);
    const struct {
        const char* key;
        const std::optional<uint16_t>& value;
    } optionals[] = {
        {"maxEnd", state.maxEnd},
        {"minEnd", state.minEnd},
        {"nextStart", state.nextStart},
        {"nextDuration", state.nextDuration},
    };
    for (const auto& [key, value] : optionals) {
        if (value) {
            AddTime(object, key, *value);
        }
    }
    if (state.confidence) {
        AddNumber(object, "confidence", *state.confidence);
    }
}

} // namespace

Frame ReadFrame(Bytes datagram) {
    Bytes rest = datagram;
    v2xipc_dataHead_t head{};
    v2xipc_rsuData_t block{};
    if (!TakeRecord(rest, head) || !TakeRecord(rest, block)) {
        return Rejection{Fault::length, FormatText("%zu bytes, a frame has at least %zu", datagram.size(), HEADS_SIZE)};
    }
    if (std::optional<Rejection> rejection = CheckHead(head, block, datagram.size() - sizeof head)) {
        return std::move(*rejection);
    }
    if (std::optional<Rejection> rejection = CheckBlock(block, rest.size())) {
        return std::move(*rejection);
    }
    if (block.m_dataType == V2XIPC_DATA_SPAT_UPER) {
        return SpatRequest{};
    }
    return ReadRecord(rest, head.m_sendTime64);
}

std::vector<std::string> RecordLines(const SpatRecord& record) {
    const std::string head = FormatRecordHead(record);
    if (record.phases.empty()) {
        return {head + "  no phases"};
    }
    std::vector<std::string> lines;
    for (const Phase& phase : record.phases) {
        lines.push_back(FormatText("%s  phase %2u  %s", head.c_str(), phase.id, FormatStates(phase.states).c_str()));
    }
    return lines;
}

std::string RecordJson(const SpatRecord& record, uint64_t receiveTime) {
    const JsonPtr object(cJSON_CreateObject());
    AddNumber(object.get(), "intersection", record.intersection);
    AddNumber(object.get(), "region", record.intersection >> 16);
    AddNumber(object.get(), "node", record.intersection & 0xFFFF);
    AddNumber(object.get(), "status", record.status);
    AddNumber(object.get(), "moy", record.moy);
    AddNumber(object.get(), "secMark", record.secMark);
    AddNumber(object.get(), "phaseNum", record.phaseNum);
    cJSON* const phases = cJSON_AddArrayToObject(object.get(), "phases");
    for (const Phase& phase : record.phases) {
        cJSON* const entry = AddObject(phases);
        AddNumber(entry, "id", phase.id);
        cJSON* const states = cJSON_AddArrayToObject(entry, "states");
        for (const PhaseState& state : phase.states) {
            AddState(states, state);
        }
    }
    AddNumber(object.get(), "emptyEntries", record.emptyEntries);
    AddNumber(object.get(), "receiveTime", receiveTime);
    AddNumber(object.get(), "sendTime", record.sendTime);
    return JsonLine(object);
}

std::string RejectionLine(const Rejection& rejection) {
    return FormatText("rejected, %s: %s", FAULTS[static_cast<size_t>(rejection.fault)].text, rejection.why.c_str());
}

std::string RejectionJson(const Rejection& rejection) {
    const JsonPtr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "refused", FAULTS[static_cast<size_t>(rejection.fault)].text);
    cJSON_AddStringToObject(object.get(), "why", rejection.why.c_str());
    return JsonLine(object);
}

} // namespace sim
