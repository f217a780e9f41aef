// IPC library of the unit: the port table of its processes and the sockets between them.
#pragma once

#include <cstdint>

#include "v2x/v2xpub.h"

// Port table, one port per role; ports above 32767 appear negative and are used by their 16 bits.
// Read from conf/v2x_ipc.cfg below the work directory; every key has the default given here.
struct v2x_ipc_config_t {
    int16_t m_spat_conv_sndport;        // ipc.spat_conv_sndport, 20001: SPAT records leave from here
    int16_t m_spat_conv_rcvport;        // ipc.spat_conv_rcvport, 20002: requests for the stack's SPAT leave from here
    int16_t m_spatconv_logtool_rcvport; // ipc.spatconv_logtool_rcvport, 20003: log tool requests arrive here
    int16_t m_app_rs_rcvport;           // ipc.app_rs_rcvport, 20010: the stack application receives here
    char m_rsu_rcv_ip[32];              // ipc.hosts.RSU_RCV, "127.0.0.1": the host of the stack application
};

using V2X_IPCSOCKHANDLE = struct v2xipc_socket*;

// Reads the port table from `workDir`/conf/v2x_ipc.cfg (relative to the current directory when workDir is empty). An
// absent file leaves the defaults; a broken file or value is logged and leaves the default of what it concerns.
// Returns 0; -2 for a null argument; -3 when the file is there but not understood; -5 without memory. Call it before
// the sockets are used; not beside other calls.
int32_t v2xipc_CfgInit(const char* workDir);

// Stores the address of the process's port table (the defaults before v2xipc_CfgInit). Returns 0, -2 for null.
int32_t v2xipc_GetIpcConfValue(const v2x_ipc_config_t** conf);

// Opens an IPC socket. Parameters and results as v2xpub_UdpSocketInit; conf must not be null. A client waits for its
// replies in v2xipc_SocketReqSend; a server's callback gets a V2X_UDPSOCKHANDLE that v2xipc_SocketRespSend takes.
int32_t v2xipc_SocketInit(V2X_IPCSOCKHANDLE* handle, const v2x_ipc_config_t* conf, const v2xpub_SocketInitPara_t* para);

// Closes the socket and frees the handle; null is harmless. Not from the callback. Returns 0.
int32_t v2xipc_SocketExit(V2X_IPCSOCKHANDLE handle);

// Sets where requests go: `hostName` is a name of the port table's hosts ("RSU_RCV"). Safe beside concurrent senders.
// Returns 0, -2 for a null argument, an unopened (null) handle, an unknown host or port 0.
int32_t v2xipc_SocketSetSendAddr(V2X_IPCSOCKHANDLE handle, const v2x_ipc_config_t* conf, const char* hostName,
                                 int16_t port);

// Sends a request. With a null reply it returns as soon as the datagram is handed to the kernel: it waits for nothing
// and takes no lock that a waiting caller holds. With a reply (buffer in mp_data, its size in m_curMsgLen) it first
// throws away replies that came too late for an earlier request, sends, and waits up to timeoutMs for the next
// datagram, whose length m_curMsgLen then tells; callers that wait on one socket do so one after another. Returns 0; -2
// for a null argument or an unopened handle; -3 when the datagram could not be sent; -4 when no reply came.
int32_t v2xipc_SocketReqSend(V2X_IPCSOCKHANDLE handle, const v2x_ipc_config_t* conf, int32_t timeoutMs,
                             const v2xpub_UdpSocketDataHead_t* request, v2xpub_UdpSocketDataHead_t* reply);

// Answers a request from within a server's callback. Returns 0; -2 for a null argument; -3 when it could not be sent.
int32_t v2xipc_SocketRespSend(V2X_UDPSOCKHANDLE handle, const v2x_ipc_config_t* conf,
                              const v2xpub_UdpSocketDataHead_t* response, const void* addr, int16_t addrLen);
