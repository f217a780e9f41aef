#include "log_request.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <stdexcept>

#include "v2x/v2xipc_data.h"

namespace logtool {
namespace {

constexpr std::array LEVELS = {"undo", "fatal", "error", "warn", "info", "debug", "verbose", "trace"};

template <typename Record>
void Append(Bytes& bytes, const Record& record) {
    const auto* begin = reinterpret_cast<const uint8_t*>(&record);
    bytes.insert(bytes.end(), begin, begin + sizeof record);
}

// Removes a record from the start of `bytes` and returns a copy. `name` names the record in the error message.
template <typename Record>
Record TakeRecord(std::span<const uint8_t>& bytes, const char* name) {
    Record record;
    if (bytes.size() < sizeof record) {
        throw std::runtime_error(std::string("the answer ends inside its ") + name);
    }
    std::memcpy(&record, bytes.data(), sizeof record);
    bytes = bytes.subspan(sizeof record);
    return record;
}

Bytes MakeRequest(uint8_t command, std::span<const v2xipc_logData_t> entries) {
    v2xipc_dataHead_t head = {};
    v2xipc_logCmd_t payload = {};
    payload.m_logCmd = command;
    payload.m_dataLen = static_cast<int16_t>(entries.size_bytes());
    std::copy_n(V2XIPC_HEAD_FLAG, sizeof head.m_headFlag, head.m_headFlag);
    head.m_inc = V2XIPC_INC;
    head.m_cmdType = V2XIPC_CMD_LOG_REQUEST;
    head.m_packLen = static_cast<uint16_t>(sizeof payload + entries.size_bytes());
    Bytes bytes;
    Append(bytes, head);
    Append(bytes, payload);
    for (const v2xipc_logData_t& entry : entries) {
        Append(bytes, entry);
    }
    return bytes;
}

} // namespace

Bytes MakeListRequest() {
    return MakeRequest(V2XIPC_LOG_REPORT, {});
}

Bytes MakeSetRequest(const std::string& tag, int16_t level) {
    v2xipc_logData_t entry = {};
    std::copy_n(tag.begin(), std::min(tag.size(), sizeof entry.m_tagName), entry.m_tagName);
    entry.m_level = level;
    return MakeRequest(V2XIPC_LOG_SET, {&entry, 1});
}

std::vector<TagLevel> ParseAnswer(std::span<const uint8_t> answer) {
    const auto head = TakeRecord<v2xipc_dataHead_t>(answer, "head");
    if (head.m_cmdType != V2XIPC_CMD_LOG_REPLY) {
        throw std::runtime_error("the answer has command " + std::to_string(head.m_cmdType) + ", not " +
                                 std::to_string(V2XIPC_CMD_LOG_REPLY));
    }
    const auto payload = TakeRecord<v2xipc_logCmd_t>(answer, "payload");
    if (payload.m_result != 0) {
        throw std::runtime_error("the daemon answers with error " + std::to_string(payload.m_result));
    }
    std::vector<TagLevel> tags;
    for (size_t rest = payload.m_dataLen > 0 ? static_cast<size_t>(payload.m_dataLen) : 0; rest > 0;) {
        const auto entry = TakeRecord<v2xipc_logData_t>(answer, "list of tags");
        const char* const name = reinterpret_cast<const char*>(entry.m_tagName);
        tags.push_back({std::string(name, strnlen(name, sizeof entry.m_tagName)), entry.m_level});
        rest -= std::min(rest, sizeof entry);
    }
    return tags;
}

std::string FormatLevel(int16_t level) {
    const bool isKnown = level >= 0 && static_cast<size_t>(level) < LEVELS.size();
    return std::to_string(level) + (isKnown ? std::string(" ") + LEVELS[static_cast<size_t>(level)] : "");
}

std::optional<int16_t> ParseLevel(const std::string& text) {
    for (size_t level = 0; level < LEVELS.size(); level++) {
        if (text == LEVELS[level] || text == std::to_string(level)) {
            return static_cast<int16_t>(level);
        }
    }
    return std::nullopt;
}

} // namespace logtool
