#include "spat_conv_stack_interface_logctl.h"

#include <cstring>

#include "v2x/v2xcount.h"
#include "v2x/v2xipc.h"
#include "v2x/v2xipc_data.h"
#include "v2x/v2xlog.h"

namespace {

v2xlog_tag_t g_log{"SINF"};

v2x_counter g_answered{"log_tool", "answered"};
v2x_counter g_notAnswered{"log_tool", "not_answered"};
v2x_counter g_tooShort{"log_tool", "too_short"};
v2x_counter g_wrongCommand{"log_tool", "wrong_command"};
v2x_counter g_notServed{"log_tool", "not_served"};

constexpr char ALL_TAGS[V2XLOG_NAME_SIZE] = "ALL";

#pragma pack(push, 1)
// The first bytes of every request.
struct Request {
    v2xipc_dataHead_t head;
    v2xipc_logCmd_t command;
};
struct SetRequest {
    Request request;
    v2xipc_logData_t entry;
};
struct Report {
    Request request;
    v2xipc_logData_t entries[V2XLOG_MAX_TAGS];
};
#pragma pack(pop)
static_assert(sizeof(Request) == 22 && sizeof(SetRequest) == 32);

using Datagram = v2xpub_UdpSocketDataHead_t;

template <typename Record>
Record ReadRecord(const Datagram& datagram) {
    Record record;
    memcpy(&record, datagram.mp_data, sizeof record);
    return record;
}

// Fills the report that answers the request: the level of every tag in the order of registration. Returns the length of
// the report in bytes.
int16_t FillReport(const Request& request, Report& report) {
    const int32_t tags = v2xlog_GetTagNum();
    const size_t dataLen = static_cast<size_t>(tags) * sizeof(v2xipc_logData_t);
    report.request = request;
    report.request.head.m_packLen = static_cast<uint16_t>(sizeof request.command + dataLen);
    report.request.command.m_dataLen = static_cast<int16_t>(dataLen);
    for (int32_t i = 0; i < tags; i++) {
        v2xipc_logData_t entry = {};
        int16_t level = 0;
        v2xlog_GetTagLevelByIndex(i, entry.m_tagName, &level);
        entry.m_level = level;
        report.entries[i] = entry;
    }
    return static_cast<int16_t>(sizeof request + dataLen);
}

// Sets the level of one tag or of all tags. Returns 0 if the level is set.
int32_t SetLevel(const v2xipc_logData_t& entry) {
    if (memcmp(entry.m_tagName, ALL_TAGS, sizeof entry.m_tagName) == 0) {
        const int32_t ret = v2xlog_SetAllTagLevel(entry.m_level);
        if (ret != 0) {
            V2XLOG(g_log, V2XLOG_WARN, "exec v2xlog_SetAllTagLevel error ret=%d", ret);
        }
        return ret;
    }
    V2X_LOGHANDLE handle = nullptr;
    int32_t ret = v2xlog_GetTagHandle(reinterpret_cast<const char*>(entry.m_tagName), &handle);
    if (ret != 0) {
        V2XLOG(g_log, V2XLOG_ERROR, "exec v2xlog_GetTagHandle error ret=%d", ret);
        return ret;
    }
    ret = v2xlog_SetTagLevel(handle, entry.m_level);
    if (ret != 0) {
        V2XLOG(g_log, V2XLOG_ERROR, "exec v2xlog_SetTagLevel error ret=%d", ret);
    }
    return ret;
}

void LogSetRequest(const v2xipc_logData_t& entry, v2xpub_address_t sender) {
    V2XLOG(g_log, V2XLOG_INFO, "log tool request from %s:%u: level %d for %.8s", v2xpub_FormatIp(sender).text,
           unsigned{sender.port}, entry.m_level, reinterpret_cast<const char*>(entry.m_tagName));
}

// Serves a request to set a level. Returns 0 if the level is set.
int32_t ServeSetRequest(const Datagram& datagram, v2xpub_address_t sender) {
    if (datagram.m_curMsgLen < static_cast<int32_t>(sizeof(SetRequest))) {
        V2XLOG(g_log, V2XLOG_WARN, "log tool request of %d bytes contains no log level", datagram.m_curMsgLen);
        return -1;
    }
    const v2xipc_logData_t entry = ReadRecord<SetRequest>(datagram).entry;
    // The request itself may switch the line on or off.
    const bool isLogged = v2xlog_Enabled(g_log, V2XLOG_INFO);
    if (isLogged) {
        LogSetRequest(entry, sender);
    }
    const int32_t ret = SetLevel(entry);
    if (!isLogged) {
        LogSetRequest(entry, sender);
    }
    return ret;
}

// Marks the datagram as an answer and sends the answer to addr.
void SendAnswer(V2X_UDPSOCKHANDLE handle, const Datagram& datagram, const void* addr, int16_t addrLen) {
    Request request = ReadRecord<Request>(datagram);
    request.head.m_cmdType = V2XIPC_CMD_LOG_REPLY;
    request.command.m_result = 0;
    memcpy(datagram.mp_data, &request, sizeof request);
    const v2x_ipc_config_t* conf = nullptr;
    v2xipc_GetIpcConfValue(&conf);
    (v2xipc_SocketRespSend(handle, conf, &datagram, addr, addrLen) == 0 ? g_answered : g_notAnswered).Add();
}

// Serves one datagram of the log tool.
void ServeRequest(V2X_UDPSOCKHANDLE handle, Datagram& datagram, const void* addr, int16_t addrLen) {
    const auto size = static_cast<size_t>(datagram.m_curMsgLen);
    const uint16_t cmdType =
        size >= sizeof(v2xipc_dataHead_t) ? ReadRecord<v2xipc_dataHead_t>(datagram).m_cmdType : V2XIPC_CMD_LOG_REQUEST;
    if (cmdType != V2XIPC_CMD_LOG_REQUEST) {
        g_wrongCommand.Add();
        V2XLOG(g_log, V2XLOG_WARN, "get error data,type pStr->m_cmdType=%d", cmdType);
        return;
    }
    if (size < sizeof(Request)) {
        g_tooShort.Add();
        V2XLOG(g_log, V2XLOG_WARN, "log tool request of %zu bytes is too short", size);
        return;
    }
    const Request request = ReadRecord<Request>(datagram);
    if (request.command.m_logCmd == V2XIPC_LOG_REPORT) {
        Report report;
        const int16_t length = FillReport(request, report);
        SendAnswer(handle, {length, reinterpret_cast<uint8_t*>(&report)}, addr, addrLen);
    } else if (request.command.m_logCmd == V2XIPC_LOG_SET &&
               ServeSetRequest(datagram, v2xpub_ReadAddress(addr, addrLen)) != 0) {
        g_notServed.Add();
    } else {
        // The answer to a set request, or to an unknown command, repeats the request.
        SendAnswer(handle, datagram, addr, addrLen);
    }
}

} // namespace

void GetLogCtl(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen) {
    V2XLOG(g_log, V2XLOG_TRACE, "GetLogCtl enter");
    ServeRequest(handle, *static_cast<Datagram*>(p_data), addr, addrLen);
    V2XLOG(g_log, V2XLOG_TRACE, "GetLogCtl exit");
}
