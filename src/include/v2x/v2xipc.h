// IPC library: the port table of the processes on the road-side unit, and request sockets between the processes.
#pragma once

#include <cstdint>

#include "v2x/v2xpub.h"

// Port table, read from conf/v2x_ipc.cfg in the work directory. Each comment gives the key and its default. A port
// above 32767 is stored as a negative number: cast the port to uint16_t.
struct v2x_ipc_config_t {
    // ipc.spat_conv_sndport, 20001: local port from which the daemon sends SPAT records
    int16_t m_spat_conv_sndport;
    // ipc.spat_conv_rcvport, 20002: local port from which the daemon requests the stack application's SPAT
    int16_t m_spat_conv_rcvport;
    // ipc.spatconv_logtool_rcvport, 20003: local port on which the daemon receives requests of the log tool
    int16_t m_spatconv_logtool_rcvport;
    // ipc.app_rs_rcvport, 20010: port on which the stack application receives
    int16_t m_app_rs_rcvport;
    // ipc.hosts.RSU_RCV, "127.0.0.1": NUL-terminated IPv4 address of the stack application
    char m_rsu_rcv_ip[32];
    // ipc.local_ip, "0.0.0.0": NUL-terminated IPv4 address of the daemon's sockets; "0.0.0.0" means all addresses
    char m_local_ip[32];
};

// Calls `visit` with the key and the value in force of each setting: `text`, or `number` if `text` is null. Any thread.
using v2xipc_settingFun = void (*)(void* arg, const char* key, const char* text, int32_t number);
void v2xipc_VisitSettings(v2xipc_settingFun visit, void* arg);

// Return the senders that the daemon accepts at its two sockets to the stack application, and at its socket for the log
// tool. Without ipc.local_ip every sender is accepted. The stack application is ipc.hosts.RSU_RCV. If that is a
// loop-back address and ipc.local_ip is not, a stack application at all addresses answers from ipc.local_ip: this
// address is accepted, too. Any thread.
v2xpub_senders_t v2xipc_ListStackSenders(const v2x_ipc_config_t& conf);
v2xpub_senders_t v2xipc_ListLogToolSenders(const v2x_ipc_config_t& conf);

// Handle of an IPC socket. The socket stays open until the process ends.
using V2X_IPCSOCKHANDLE = struct v2xipc_socket*;

// Reads the port table from `workDir`/conf/v2x_ipc.cfg, or from conf/v2x_ipc.cfg in the current directory if `workDir`
// is empty. Uses the default for a missing or invalid key, and all defaults for a missing or invalid file. Logs an
// invalid file or value. Returns 0; -2 for a null argument; -3 if the file exists but cannot be read or parsed; -5 if
// ipc.local_ip is invalid, is a loop-back address while ipc.hosts.RSU_RCV is not, or cannot be found: the file mentions
// local_ip but cannot be parsed or has no group ipc, or another key is probably meant to be ipc.local_ip. With -5 the
// daemon must not start. Call this function on one thread, before any socket is opened.
int32_t v2xipc_CfgInit(const char* workDir);

// Returns the reason of a refused file for the operator: "file:line: key: reason". Never null; valid until the next
// call of v2xipc_CfgInit.
const char* v2xipc_GetCfgErrorText(void);

// Stores the address of the process's port table, which has the defaults until v2xipc_CfgInit is called. Returns 0; -2
// for a null argument.
int32_t v2xipc_GetIpcConfValue(const v2x_ipc_config_t** conf);

// Opens an IPC socket. `para` and the results are those of v2xpub_UdpSocketInit; a null `conf` also returns -2. A
// client receives replies in v2xipc_SocketReqSend. A server answers in its callback with v2xipc_SocketRespSend.
int32_t v2xipc_SocketInit(V2X_IPCSOCKHANDLE* handle, const v2x_ipc_config_t* conf, const v2xpub_SocketInitPara_t* para);

// Sets the destination of requests. `hostName` is the name of a host in the port table: "RSU_RCV". May be called on any
// thread. Returns 0; -2 for a null argument, an unknown host or port 0.
int32_t v2xipc_SocketSetSendAddr(V2X_IPCSOCKHANDLE handle, const v2x_ipc_config_t* conf, const char* hostName,
                                 int16_t port);

// Sends a request. May be called on any thread.
// If `reply` is null, the function returns without waiting, even while other threads wait for replies.
// Otherwise mp_data is the buffer for the reply and m_curMsgLen is the buffer's size. The function discards late
// replies to earlier requests, sends the request, waits up to `timeoutMs` milliseconds for the next datagram, and sets
// m_curMsgLen to the datagram's length. Only one thread at a time can wait for a reply on a socket; other threads wait
// for their turn. Returns 0; -2 for a null or invalid argument; -3 if sending failed; -4 if no reply arrived in time.
int32_t v2xipc_SocketReqSend(V2X_IPCSOCKHANDLE handle, const v2x_ipc_config_t* conf, int32_t timeoutMs,
                             const v2xpub_UdpSocketDataHead_t* request, v2xpub_UdpSocketDataHead_t* reply);

// Answers a request. Call this function in the server's callback with the arguments of the callback. Returns 0; -2 for
// a null argument; -3 if sending failed.
int32_t v2xipc_SocketRespSend(V2X_UDPSOCKHANDLE handle, const v2x_ipc_config_t* conf,
                              const v2xpub_UdpSocketDataHead_t* response, const void* addr, int16_t addrLen);
