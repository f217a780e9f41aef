// IPC library of the unit: the port table of its processes and the request sockets between them.
#pragma once

#include <cstdint>

#include "v2x/v2xpub.h"

// Port table, one port per role. A port above 32767 is stored as a negative number: cast it to uint16_t.
// Read from conf/v2x_ipc.cfg below the work directory. Each line gives the key and its default.
struct v2x_ipc_config_t {
    int16_t m_spat_conv_sndport;        // ipc.spat_conv_sndport, 20001: the daemon sends SPAT records from here
    int16_t m_spat_conv_rcvport;        // ipc.spat_conv_rcvport, 20002: the daemon requests the stack's SPAT from here
    int16_t m_spatconv_logtool_rcvport; // ipc.spatconv_logtool_rcvport, 20003: log tool requests arrive here
    int16_t m_app_rs_rcvport;           // ipc.app_rs_rcvport, 20010: the stack application receives here
    char m_rsu_rcv_ip[32]; // ipc.hosts.RSU_RCV, "127.0.0.1": NUL-terminated address of the stack application
};

// Open for the life of the process.
using V2X_IPCSOCKHANDLE = struct v2xipc_socket*;

// Reads the port table from `workDir`/conf/v2x_ipc.cfg (relative to the current directory when workDir is empty).
// A missing file or key keeps the default. An invalid file or value is logged and keeps the default.
// Returns 0; -2 for a null argument; -3 when the file cannot be read or parsed. Call it before the sockets are
// used, from one thread.
int32_t v2xipc_CfgInit(const char* workDir);

// Stores the address of the process's port table (the defaults before v2xipc_CfgInit). Returns 0, -2 for null.
int32_t v2xipc_GetIpcConfValue(const v2x_ipc_config_t** conf);

// Opens an IPC socket. Parameters and results as v2xpub_UdpSocketInit; -2 also for a null conf. A client receives its
// replies in v2xipc_SocketReqSend. A server's callback passes its handle to v2xipc_SocketRespSend.
int32_t v2xipc_SocketInit(V2X_IPCSOCKHANDLE* handle, const v2x_ipc_config_t* conf, const v2xpub_SocketInitPara_t* para);

// Sets the destination of requests: the host named in the port table ("RSU_RCV") and a port. Any thread.
// Returns 0; -2 for a null argument, an unopened (null) handle, an unknown host or port 0.
int32_t v2xipc_SocketSetSendAddr(V2X_IPCSOCKHANDLE handle, const v2x_ipc_config_t* conf, const char* hostName,
                                 int16_t port);

// Sends a request. Any thread.
// With a null reply it returns once the kernel has the datagram. It never waits for a caller that awaits its reply.
// With a reply (buffer in mp_data, its size in m_curMsgLen) it discards late replies to earlier requests, sends, and
// waits up to timeoutMs for the next datagram; m_curMsgLen becomes that datagram's length. Callers that await a reply
// on one socket take turns. Returns 0; -2 for a null or invalid argument or an unopened handle; -3 when the send
// failed; -4 without a reply in time.
int32_t v2xipc_SocketReqSend(V2X_IPCSOCKHANDLE handle, const v2x_ipc_config_t* conf, int32_t timeoutMs,
                             const v2xpub_UdpSocketDataHead_t* request, v2xpub_UdpSocketDataHead_t* reply);

// Answers a request, from the server's callback. Returns 0; -2 for a null argument; -3 when the send failed.
int32_t v2xipc_SocketRespSend(V2X_UDPSOCKHANDLE handle, const v2x_ipc_config_t* conf,
                              const v2xpub_UdpSocketDataHead_t* response, const void* addr, int16_t addrLen);
