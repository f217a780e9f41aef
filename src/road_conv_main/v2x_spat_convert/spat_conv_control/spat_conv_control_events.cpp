#include "spat_conv_control_events.h"

#include <algorithm>
#include <cstring>
#include <iterator>

#include "spat_conv_control_json.h"
#include "v2x/v2xdds.h"
#include "v2x/v2xpub.h"

namespace {

using Bytes = std::span<const uint8_t>;
using StateEvent = v2xspatconv_stateEvent_t;

// Copies the head of an entry and removes it from `entry`.
template <typename Head>
Head TakeHead(Bytes& entry) {
    Head head = {};
    const size_t size = std::min(entry.size(), sizeof head);
    memcpy(&head, entry.data(), size);
    entry = entry.subspan(size);
    return head;
}

void AddHex(cJSON* object, Bytes bytes) {
    constexpr char DIGITS[] = "0123456789abcdef";
    std::string text;
    text.reserve(2 * bytes.size());
    for (const uint8_t byte : bytes) {
        text += DIGITS[byte >> 4];
        text += DIGITS[byte & 15];
    }
    cJSON_AddStringToObject(object, "bytes", text.c_str());
}

std::string FormatDatagram(Bytes entry) {
    const auto head = TakeHead<v2xpub_tap_t>(entry);
    const v2xspatconv_json_t line = v2xspatconv_StartLine("event", "datagram", head.time);
    cJSON_AddBoolToObject(line.get(), "sent", head.isSent);
    cJSON_AddStringToObject(line.get(), "socket", head.socket);
    cJSON_AddStringToObject(line.get(), "local", v2xspatconv_FormatAddress(head.local).c_str());
    cJSON_AddStringToObject(line.get(), "remote", v2xspatconv_FormatAddress(head.remote).c_str());
    AddHex(line.get(), entry);
    return v2xspatconv_PrintLine(line.get());
}

std::string FormatSample(Bytes entry) {
    const auto head = TakeHead<dds_tap_t>(entry);
    const v2xspatconv_json_t line = v2xspatconv_StartLine("event", "sample", head.time);
    cJSON_AddBoolToObject(line.get(), "sent", head.isSent);
    cJSON_AddStringToObject(line.get(), "topic", head.topic);
    AddHex(line.get(), entry);
    return v2xspatconv_PrintLine(line.get());
}

std::string FormatRecord(Bytes entry) {
    const auto head = TakeHead<v2xspatconv_recordEvent_t>(entry);
    const v2xspatconv_json_t line = v2xspatconv_StartLine("event", "record", head.time);
    v2xspatconv_AddText(line.get(), "source", v2xspatconv_NameOfSource(head.source));
    cJSON_AddBoolToObject(line.get(), "replaced", head.isReplaced);
    cJSON* const lights = cJSON_AddArrayToObject(line.get(), "lights");
    for (int32_t i = 0; i < head.count && !entry.empty(); i++) {
        const auto light = TakeHead<v2xspatconv_light_t>(entry);
        cJSON* const object = v2xspatconv_AppendObject(lights);
        cJSON_AddNumberToObject(object, "phase", light.phase);
        cJSON_AddStringToObject(object, "light", v2xspatconv_NameOfLight(light.light));
        v2xspatconv_AddTimeLeft(object, light.timeLeft);
    }
    return v2xspatconv_PrintLine(line.get());
}

std::string FormatState(Bytes entry) {
    static constexpr const char* NAMES[] = {"source", "forwarded", "check"}; // index: StateEvent::Type
    const auto head = TakeHead<StateEvent>(entry);
    const v2xspatconv_json_t line = v2xspatconv_StartLine("event", NAMES[static_cast<size_t>(head.type)], head.time);
    v2xspatconv_AddText(line.get(), "source", v2xspatconv_NameOfSource(head.source));
    if (head.type == StateEvent::Type::source) {
        cJSON_AddStringToObject(line.get(), "state", V2XSPATCONV_STATE_NAMES[static_cast<size_t>(head.state)]);
    }
    if (head.type == StateEvent::Type::check) {
        cJSON_AddStringToObject(line.get(), "check", V2XSPATCONV_CHECK_NAMES[head.check]);
        cJSON_AddBoolToObject(line.get(), "active", head.isActive);
        v2xspatconv_AddPhases(line.get(), {head.phases, std::min<size_t>(head.phaseCount, std::size(head.phases))});
    }
    cJSON_AddStringToObject(line.get(), "text", head.text);
    return v2xspatconv_PrintLine(line.get());
}

} // namespace

const char* v2xspatconv_NameOfSource(uint8_t source) {
    return source < V2XSPATCONV_SOURCES ? V2XSPATCONV_SOURCE_NAMES[source] : nullptr;
}

void v2xspatconv_AddPhases(cJSON* object, std::span<const uint8_t> phases) {
    cJSON* const array = cJSON_AddArrayToObject(object, "phases");
    for (const uint8_t phase : phases) {
        cJSON_AddItemToArray(array, cJSON_CreateNumber(phase));
    }
}

std::string v2xspatconv_FormatEvent(v2x_journalKind kind, std::span<const uint8_t> entry) {
    static constexpr std::string (*FORMATS[])(Bytes) = {FormatDatagram, FormatSample, FormatRecord, FormatState};
    return FORMATS[static_cast<size_t>(kind)](entry); // index: v2x_journalKind
}

std::string v2xspatconv_FormatStackEvent(const v2xspatconv_peers_t& peers, uint64_t wallTime) {
    const v2xspatconv_json_t line = v2xspatconv_StartLine("event", "stack", wallTime);
    cJSON_AddStringToObject(line.get(), "state", peers.stackState);
    return v2xspatconv_PrintLine(line.get());
}

std::string v2xspatconv_FormatCloudEvent(const v2xspatconv_peers_t& peers, uint64_t wallTime) {
    const v2xspatconv_json_t line = v2xspatconv_StartLine("event", "cloud", wallTime);
    cJSON_AddBoolToObject(line.get(), "available", peers.isCloudAvailable);
    return v2xspatconv_PrintLine(line.get());
}
