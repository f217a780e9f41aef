// Log control: the local log tool reads and changes the levels of the daemon's log tags.
#include <cstring>
#include <new>
#include <vector>

#include "spat_conv_stack_interface.h"
#include "spat_conv_stack_interface_socket.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"SINF"};

v2x_counter g_answered{"log_tool", "answered"};
v2x_counter g_notAnswered{"log_tool", "not_answered"};
v2x_counter g_tooShort{"log_tool", "too_short"};
v2x_counter g_wrongCommand{"log_tool", "wrong_command"};
v2x_counter g_notServed{"log_tool", "not_served"};
v2x_counter g_noMemory{"log_tool", "no_memory"};

constexpr char ALL_TAGS[V2XLOG_NAME_SIZE] = "ALL";

using Datagram = std::vector<uint8_t>;

template <typename Record>
Record Read(const Datagram& datagram, size_t at) {
    Record record;
    memcpy(&record, datagram.data() + at, sizeof record);
    return record;
}

template <typename Record>
void Write(Datagram& datagram, size_t at, const Record& record) {
    memcpy(datagram.data() + at, &record, sizeof record);
}

constexpr size_t COMMAND_AT = sizeof(v2xipc_dataHead_t);
constexpr size_t ENTRIES_AT = COMMAND_AT + sizeof(v2xipc_logCmd_t);

// Turns the request into the report: every tag in the order of registration.
bool ReportLevels(Datagram& datagram) {
    const auto tags = static_cast<size_t>(v2xlog_GetTagNum());
    auto head = Read<v2xipc_dataHead_t>(datagram, 0);
    auto command = Read<v2xipc_logCmd_t>(datagram, COMMAND_AT);
    command.m_dataLen = static_cast<int16_t>(tags * sizeof(v2xipc_logData_t));
    head.m_packLen = static_cast<uint16_t>(sizeof command + tags * sizeof(v2xipc_logData_t));
    datagram.resize(sizeof head + head.m_packLen);
    Write(datagram, 0, head);
    Write(datagram, COMMAND_AT, command);
    for (size_t i = 0; i < tags; i++) {
        v2xipc_logData_t entry = {};
        int16_t level = 0;
        v2xlog_GetTagLevelByIndex(static_cast<int32_t>(i), entry.m_tagName, &level);
        entry.m_level = level;
        Write(datagram, ENTRIES_AT + i * sizeof entry, entry);
    }
    return true;
}

bool SetLevel(Datagram& datagram) {
    if (datagram.size() < ENTRIES_AT + sizeof(v2xipc_logData_t)) {
        V2XLOG(g_log, V2XLOG_WARN, "log tool request of %zu bytes names no level", datagram.size());
        return false;
    }
    const auto entry = Read<v2xipc_logData_t>(datagram, ENTRIES_AT);
    if (memcmp(entry.m_tagName, ALL_TAGS, sizeof entry.m_tagName) == 0) {
        const int32_t ret = v2xlog_SetAllTagLevel(entry.m_level);
        if (ret != 0) {
            V2XLOG(g_log, V2XLOG_WARN, "exec v2xlog_SetAllTagLevel error ret=%d", ret);
        }
        return ret == 0;
    }
    V2X_LOGHANDLE handle = nullptr;
    int32_t ret = v2xlog_GetTagHandle(reinterpret_cast<const char*>(entry.m_tagName), &handle);
    if (ret != 0) {
        V2XLOG(g_log, V2XLOG_ERROR, "exec v2xlog_GetTagHandle error ret=%d", ret);
        return false;
    }
    ret = v2xlog_SetTagLevel(handle, entry.m_level);
    if (ret != 0) {
        V2XLOG(g_log, V2XLOG_ERROR, "exec v2xlog_SetTagLevel error ret=%d", ret);
    }
    return ret == 0;
}

// Whether the datagram is an answer now.
bool Serve(Datagram& datagram) {
    switch (Read<v2xipc_logCmd_t>(datagram, COMMAND_AT).m_logCmd) {
    case V2XIPC_LOG_REPORT:
        return ReportLevels(datagram);
    case V2XIPC_LOG_SET:
        return SetLevel(datagram);
    default:
        return true; // goes back as it came
    }
}

// A report's request holds none, whatever its length says.
bool HoldsItsEntries(const Datagram& datagram) {
    const auto command = Read<v2xipc_logCmd_t>(datagram, COMMAND_AT);
    return command.m_logCmd == V2XIPC_LOG_REPORT ||
           (command.m_dataLen >= 0 && ENTRIES_AT + static_cast<size_t>(command.m_dataLen) <= datagram.size());
}

// The request when it is one and holds what it claims; else empty.
Datagram Accept(const v2xpub_UdpSocketDataHead_t* message) {
    if (message == nullptr || message->mp_data == nullptr || message->m_curMsgLen < 0) {
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return {};
    }
    Datagram datagram(message->mp_data, message->mp_data + message->m_curMsgLen);
    if (datagram.size() < sizeof(v2xipc_dataHead_t)) {
        g_tooShort.Add();
        V2XLOG(g_log, V2XLOG_WARN, "log tool request of %zu bytes is too short", datagram.size());
        return {};
    }
    const auto head = Read<v2xipc_dataHead_t>(datagram, 0);
    if (head.m_cmdType != V2XIPC_CMD_LOG_REQUEST) {
        g_wrongCommand.Add();
        V2XLOG(g_log, V2XLOG_WARN, "get error data,type pStr->m_cmdType=%d", head.m_cmdType);
        return {};
    }
    if (datagram.size() < ENTRIES_AT || datagram.size() < sizeof head + head.m_packLen || !HoldsItsEntries(datagram)) {
        g_tooShort.Add();
        V2XLOG(g_log, V2XLOG_WARN, "log tool request of %zu bytes is too short", datagram.size());
        return {};
    }
    return datagram;
}

void SealAnswer(Datagram& datagram) {
    auto head = Read<v2xipc_dataHead_t>(datagram, 0);
    auto command = Read<v2xipc_logCmd_t>(datagram, COMMAND_AT);
    head.m_cmdType = V2XIPC_CMD_LOG_REPLY;
    command.m_result = 0;
    Write(datagram, 0, head);
    Write(datagram, COMMAND_AT, command);
}

} // namespace

void GetLogCtl(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen) {
    V2XLOG(g_log, V2XLOG_TRACE, "GetLogCtl enter");
    try {
        Datagram datagram = Accept(static_cast<const v2xpub_UdpSocketDataHead_t*>(p_data));
        if (datagram.empty()) {
            // said and counted
        } else if (!Serve(datagram)) {
            g_notServed.Add();
        } else {
            SealAnswer(datagram);
            const int32_t sent = v2xspatconv_AnswerLogTool(
                handle, {static_cast<int16_t>(datagram.size()), datagram.data()}, addr, addrLen);
            (sent == 0 ? g_answered : g_notAnswered).Add();
        }
    } catch (const std::bad_alloc&) {
        g_noMemory.Add();
        V2XLOG(g_log, V2XLOG_ERROR, "malloc error");
    }
    V2XLOG(g_log, V2XLOG_TRACE, "GetLogCtl exit");
}
