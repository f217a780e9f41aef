// Process services of the unit: periodic tasks, UDP sockets, time.
#pragma once

#include <cstdint>

// Prepares the services: reads the time zone, and finds out once whether this process may use real-time scheduling (one
// warning when it may not). Called by whatever needs it first, too; any number of calls is harmless. Returns 0.
int32_t v2xpub_PubSubInit(void);

// Wall clock, microseconds since 1970-01-01 00:00:00 UTC. Any thread.
uint64_t v2xpub_CommGetCurrentTime64(void);

// ---- periodic tasks ------------------------------------------------------------------------------------------------

using V2X_TASKHANDLE = struct v2xpub_task*;

enum e_v2xtask_type : int32_t {
    V2XTASK_TYPE_NONE = 0, // ordinary scheduling
    V2XTASK_TYPE_FIFO = 1, // SCHED_FIFO
    V2XTASK_TYPE_RR = 2,   // SCHED_RR
    V2XTASK_TYPE_OTHER = 3 // ordinary scheduling
};

using v2xpub_taskFun = void (*)(void* arg);

struct v2xpub_TaskInitPara_t {
    char m_taskName[32];  // NUL-terminated; the thread shows its first 15 characters
    uint32_t m_priority;  // 1 to 99, for FIFO and RR
    uint32_t m_intervals; // period in microseconds, at least 1000
    e_v2xtask_type m_tskType;
    bool m_isOneShot;             // run once, one period from now, instead of for ever
    void* mp_arg;                 // handed to the three routines
    v2xpub_taskFun f_tskFunEnter; // once, on the task's thread, before the first run; may be null
    v2xpub_taskFun f_tskFunExec;  // every period; must not be null
    v2xpub_taskFun f_tskFunExit;  // once, after the last run; may be null
    bool m_eventTrigFlag;         // must be false: tasks of this library run by the clock only
};

// Starts a task on a thread of its own (stack of 512 KiB, SIGINT, SIGQUIT and SIGTERM blocked). The first run is one
// period after the call; deadlines are absolute on the monotonic clock, so the period does not drift; a run that
// overruns its period makes the task skip the deadlines it missed. Without the right to real-time scheduling the task
// runs with ordinary scheduling. The handle is stored before any routine runs. Returns 0; -2 for a null or unfit
// argument; -3 when no thread can be made (the handle is left alone).
int32_t v2xpub_TaskCreate(V2X_TASKHANDLE* handle, const v2xpub_TaskInitPara_t* para);

// Ends the task after the run under way, waits for it and frees the handle; null is harmless. Not to be called from the
// task itself. A task that is never deleted runs until the process ends. Returns 0.
int32_t v2xpub_TaskDelete(V2X_TASKHANDLE handle);

// ---- UDP sockets ---------------------------------------------------------------------------------------------------

using V2X_UDPSOCKHANDLE = struct v2xpub_udpSocket*;

// A datagram: its bytes and their number. In a receive call m_curMsgLen holds the buffer's size on entry.
struct v2xpub_UdpSocketDataHead_t {
    int16_t m_curMsgLen;
    uint8_t* mp_data;
};

// Receive callback: p_data is a v2xpub_UdpSocketDataHead_t, addr the sender's sockaddr of addrLen bytes; both are lent
// for the call. Runs on the socket's receive thread, one datagram at a time.
using v2xpub_msgFunc = void (*)(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);

struct v2xpub_SocketInitPara_t {
    char m_sockName[32];      // for log lines; NUL-terminated
    char m_localIP[32];       // dotted IPv4 address to bind; NUL-terminated
    uint16_t m_svrPort;       // with m_svrEnable: port to receive on, not 0
    uint16_t m_cliPort;       // with m_cliEnable alone: local port to send from, 0 = any
    int8_t m_svrEnable;       // 1 = server: bound to m_svrPort, a receive thread when there is a callback
    int8_t m_cliEnable;       // 1 = client: may send
    v2xpub_msgFunc f_msgFunc; // or null: nothing is read but by v2xpub_UdpSocketRecv
};

// Counters of one socket since it was opened.
struct v2xpub_UdpSocketStats_t {
    uint64_t received;    // datagrams handed to the callback or to v2xpub_UdpSocketRecv
    uint64_t tooLong;     // dropped: longer than 32767 bytes, or than the buffer of v2xpub_UdpSocketRecv
    uint64_t kernelDrops; // dropped by the kernel, the socket's buffer being full
    uint64_t sent;
    uint64_t sendErrors;
};

// Opens and binds a socket. rcvBufBytes asks for that receive buffer (0 = 4 MiB for a server, the kernel's own size for
// a client); a smaller one than asked is logged. The handle is stored before the callback can run for the first time.
// Returns 0; -2 for a null or unfit argument (no port to listen on, not an address, neither enabled); -3 when the
// socket cannot be opened or bound. One error line names socket, address, port and reason,
// and errno is that of the failed call; the handle is left alone.
int32_t v2xpub_UdpSocketInit(V2X_UDPSOCKHANDLE* handle, const v2xpub_SocketInitPara_t* para, int32_t rcvBufBytes);

// Closes the socket, waits for its receive thread and frees the handle; null is harmless. Not from the callback.
int32_t v2xpub_UdpSocketExit(V2X_UDPSOCKHANDLE handle);

// Sets where v2xpub_UdpSocketReqSend sends to: dotted IPv4 address and port. Safe beside concurrent senders.
// Returns 0, -2 for a null handle or address or one that is not an address, or port 0.
int32_t v2xpub_UdpSocketSetSendAddr(V2X_UDPSOCKHANDLE handle, const char* ip, uint16_t port);

// Sends one datagram to the address set, without waiting. Returns 0; -2 for a null handle or datagram, a negative
// length or no address set; -3 when the kernel refuses it (counted; the reason is logged at a limited rate and in
// errno).
int32_t v2xpub_UdpSocketReqSend(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t* data);

// Sends one datagram back to a sender, `addr` and `addrLen` as the callback had them. Results as above.
int32_t v2xpub_UdpSocketRespSend(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t* data, const void* addr,
                                 int16_t addrLen);

// Waits up to timeoutMs (0 = not at all) for a datagram on a socket without callback and stores it in data->mp_data,
// whose size data->m_curMsgLen tells; then m_curMsgLen is the datagram's length. A longer one is dropped and counted.
// Returns 0; 1 when none came in time; -2 for a null or unfit argument; -3 on an error of the socket.
int32_t v2xpub_UdpSocketRecv(V2X_UDPSOCKHANDLE handle, v2xpub_UdpSocketDataHead_t* data, int32_t timeoutMs);

// Copies the counters. Returns 0, -2 for a null argument. Any thread.
int32_t v2xpub_UdpSocketGetStats(V2X_UDPSOCKHANDLE handle, v2xpub_UdpSocketStats_t* stats);

// Calls `visit` with the name and the counters of every open socket, newest first; no socket opens or closes meanwhile,
// so `visit` must not do that. Any thread.
using v2xpub_statsFun = void (*)(void* arg, const char* sockName, const v2xpub_UdpSocketStats_t* stats);
void v2xpub_UdpSocketVisitStats(v2xpub_statsFun visit, void* arg);

// ---- checksums -----------------------------------------------------------------------------------------------------

// CRC-16, least significant bit first, without final inversion, of `length` bytes. The polynomial is given reflected
// (0xA001 for x^16 + x^15 + x^2 + 1); initial value 0xFFFF with it is CRC-16/MODBUS, 0 is CRC-16/ARC.
// Returns 0, -2 for a null argument. Any thread.
int32_t v2xpub_Crc16(uint16_t initial, uint16_t polynomial, const uint8_t* data, uint32_t length, uint16_t* crc_out);
