#include "ipc_print.h"

#include "json.h"
#include "text.h"
#include "v2x/v2xipc_data.h"

namespace sim {
namespace {

std::string SecondsText(uint16_t tenths) {
    return tenths == V2XIPC_TIME_UNKNOWN ? "unknown" : FormatText("%u.%u s", tenths / 10, tenths % 10);
}

// "12:34:56.789  1/2", from the minute of the year and the millisecond of that minute.
std::string ReadingText(const SpatRecord& record) {
    const uint32_t minute = record.moy % (24 * 60);
    return FormatText("%02u:%02u:%02u.%03u  %u/%u", minute / 60, minute % 60, record.secMark / 1000,
                      record.secMark % 1000, record.intersection >> 16, record.intersection & 0xFFFF);
}

// The present state in columns, and the states to come behind it.
std::string StatesText(const std::vector<PhaseState>& states) {
    if (states.empty()) {
        return "no state";
    }
    const PhaseState& first = states.front();
    std::string line = FormatText("%-16s  %7s", LightName(first.light).c_str(), SecondsText(first.end).c_str());
    if (first.start != 0) {
        line += FormatText(" (from %s)", SecondsText(first.start).c_str());
    }
    for (size_t at = 1; at < states.size(); ++at) {
        line += FormatText(", then %s %s to %s", LightName(states[at].light).c_str(),
                           SecondsText(states[at].start).c_str(), SecondsText(states[at].end).c_str());
    }
    return line;
}

void AddTime(cJSON* object, const char* key, uint16_t tenths) {
    if (tenths == V2XIPC_TIME_UNKNOWN) {
        cJSON_AddNullToObject(object, key);
    } else {
        AddUnsigned(object, key, tenths);
    }
}

void AddState(cJSON* states, const PhaseState& state) {
    cJSON* const object = AddObject(states);
    AddSigned(object, "mode", state.mode);
    cJSON_AddStringToObject(object, "light", LightName(state.light).c_str());
    AddUnsigned(object, "lightCode", state.light);
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
        AddUnsigned(object, "confidence", *state.confidence);
    }
}

} // namespace

std::string LightName(uint8_t light) {
    constexpr const char* NAMES[] = {
        "unavailable",     "dark",   "flashing red",   "red", "flashing green", "permissive green",
        "protected green", "yellow", "flashing yellow"};
    static_assert(std::size(NAMES) == V2XIPC_LIGHT_FLASHING_YELLOW + 1);
    return light < std::size(NAMES) ? NAMES[light] : FormatText("light %u", light);
}

std::vector<std::string> RecordLines(const SpatRecord& record) {
    const std::string reading = ReadingText(record);
    if (record.phases.empty()) {
        return {reading + "  no phases"};
    }
    std::vector<std::string> lines;
    for (const Phase& phase : record.phases) {
        lines.push_back(FormatText("%s  phase %2u  %s", reading.c_str(), phase.id, StatesText(phase.states).c_str()));
    }
    return lines;
}

std::string RecordJson(const SpatRecord& record, uint64_t receiveTime) {
    const JsonPtr object(cJSON_CreateObject());
    AddUnsigned(object.get(), "intersection", record.intersection);
    AddUnsigned(object.get(), "region", record.intersection >> 16);
    AddUnsigned(object.get(), "node", record.intersection & 0xFFFF);
    AddUnsigned(object.get(), "status", record.status);
    AddUnsigned(object.get(), "moy", record.moy);
    AddUnsigned(object.get(), "secMark", record.secMark);
    AddSigned(object.get(), "phaseNum", record.phaseNum);
    cJSON* const phases = cJSON_AddArrayToObject(object.get(), "phases");
    for (const Phase& phase : record.phases) {
        cJSON* const entry = AddObject(phases);
        AddUnsigned(entry, "id", phase.id);
        cJSON* const states = cJSON_AddArrayToObject(entry, "states");
        for (const PhaseState& state : phase.states) {
            AddState(states, state);
        }
    }
    AddUnsigned(object.get(), "emptyEntries", record.emptyEntries);
    AddUnsigned(object.get(), "receiveTime", receiveTime);
    AddUnsigned(object.get(), "sendTime", record.sendTime);
    return JsonLine(object);
}

std::string RefusalLine(const Refusal& refusal) {
    return FormatText("refused, %s: %s", RungName(refusal.rung), refusal.why.c_str());
}

std::string RefusalJson(const Refusal& refusal) {
    const JsonPtr object(cJSON_CreateObject());
    cJSON_AddStringToObject(object.get(), "refused", RungName(refusal.rung));
    cJSON_AddStringToObject(object.get(), "why", refusal.why.c_str());
    return JsonLine(object);
}

} // namespace sim
