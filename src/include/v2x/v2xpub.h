// Process services of the unit: periodic tasks, UDP sockets, time.
#pragma once

#include <cstdint>

// Prepares the services: reads the time zone and tries real-time scheduling once (one warning when the process may not
// use it). v2xpub_TaskCreate calls it, too. It may be called any number of times. Returns 0.
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
    char m_taskName[32];  // NUL-terminated; the first 15 characters name the thread
    uint32_t m_priority;  // 1 to 99, for FIFO and RR
    uint32_t m_intervals; // period in microseconds, at least 1000
    e_v2xtask_type m_tskType;
    bool m_isOneShot;             // run only once, one period from now
    void* mp_arg;                 // argument of the three routines
    v2xpub_taskFun f_tskFunEnter; // once, on the task's thread, before the first run; may be null
    v2xpub_taskFun f_tskFunExec;  // every period; must not be null
    v2xpub_taskFun f_tskFunExit;  // once, after the last run; may be null
    bool m_eventTrigFlag;         // must be false: event triggers are not supported
};

// Starts a task on a thread of its own (stack of 512 KiB, SIGINT, SIGQUIT and SIGTERM blocked). The first run is one
// period after the call. Deadlines are absolute on the monotonic clock, so the period does not drift. After a run that
// takes longer than its period, the task skips the missed deadlines. A process that may not use real-time scheduling
// runs the task with ordinary scheduling. The handle is stored before any routine runs. Returns 0; -2 for a null or
// invalid argument; -3 when the thread cannot be started. On failure the handle keeps its value.
int32_t v2xpub_TaskCreate(V2X_TASKHANDLE* handle, const v2xpub_TaskInitPara_t* para);

// Waits for the current run, ends the task and frees the handle; ignores null. The task itself must not call it. A task
// that is never deleted runs until the process ends. Returns 0.
int32_t v2xpub_TaskDelete(V2X_TASKHANDLE handle);

// ---- UDP sockets ---------------------------------------------------------------------------------------------------

using V2X_UDPSOCKHANDLE = struct v2xpub_udpSocket*;

// A datagram: its bytes and their number. For v2xpub_UdpSocketRecv m_curMsgLen is the buffer's size on entry.
struct v2xpub_UdpSocketDataHead_t {
    int16_t m_curMsgLen;
    uint8_t* mp_data;
};

// Receive callback: p_data is a v2xpub_UdpSocketDataHead_t, addr the sender's sockaddr of addrLen bytes; both are valid
// during the call only. Runs on the socket's receive thread, one datagram at a time.
using v2xpub_msgFunc = void (*)(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);

struct v2xpub_SocketInitPara_t {
    char m_sockName[32];      // for log lines; NUL-terminated
    char m_localIP[32];       // dotted IPv4 address to bind; NUL-terminated
    uint16_t m_svrPort;       // with m_svrEnable: port to receive on, not 0
    uint16_t m_cliPort;       // with m_cliEnable alone: local port to send from, 0 = any
    int8_t m_svrEnable;       // 1 = server: bound to m_svrPort, a receive thread when there is a callback
    int8_t m_cliEnable;       // 1 = client: may send
    v2xpub_msgFunc f_msgFunc; // or null: only v2xpub_UdpSocketRecv receives
};

// Counters of one socket since it was opened.
struct v2xpub_UdpSocketStats_t {
    uint64_t received;    // delivered to the callback or by v2xpub_UdpSocketRecv
    uint64_t tooLong;     // dropped: longer than 32767 bytes, or than the buffer of v2xpub_UdpSocketRecv
    uint64_t kernelDrops; // dropped by the kernel because the socket's buffer was full
    uint64_t sent;
    uint64_t sendErrors;
};

// Opens and binds a socket. rcvBufBytes requests the size of the receive buffer (0 = 4 MiB for a server, the kernel's
// default for a client); a smaller buffer than requested is logged. The handle is stored before the callback runs for
// the first time. Returns 0; -2 for a null or invalid argument (no port to receive on, invalid address, neither server
// nor client); -3 when the socket cannot be opened or bound, with errno of the failed call. On failure one error line
// names socket, address, port and reason, and the handle keeps its value.
int32_t v2xpub_UdpSocketInit(V2X_UDPSOCKHANDLE* handle, const v2xpub_SocketInitPara_t* para, int32_t rcvBufBytes);

// Closes the socket, waits for its receive thread and frees the handle; ignores null. The callback must not call it.
int32_t v2xpub_UdpSocketExit(V2X_UDPSOCKHANDLE handle);

// Sets the destination of v2xpub_UdpSocketReqSend: dotted IPv4 address and port. Other threads may send meanwhile.
// Returns 0, -2 for a null handle, a null or invalid address, or port 0.
int32_t v2xpub_UdpSocketSetSendAddr(V2X_UDPSOCKHANDLE handle, const char* ip, uint16_t port);

// Sends one datagram to the destination without waiting. Returns 0; -2 for a null handle or datagram, a negative
// length or no destination; -3 when the kernel rejects it (counted, logged at a limited rate, reason in errno).
int32_t v2xpub_UdpSocketReqSend(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t* data);

// Sends one datagram back to a sender; `addr` and `addrLen` are those of the callback. Results as above.
int32_t v2xpub_UdpSocketRespSend(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t* data, const void* addr,
                                 int16_t addrLen);

// Waits up to timeoutMs (0 = not at all) for a datagram on a socket without callback. Stores it in data->mp_data, a
// buffer of data->m_curMsgLen bytes, and sets m_curMsgLen to its length. A longer datagram is dropped and counted.
// Returns 0; 1 on a time-out; -2 for a null or invalid argument; -3 on an error of the socket.
int32_t v2xpub_UdpSocketRecv(V2X_UDPSOCKHANDLE handle, v2xpub_UdpSocketDataHead_t* data, int32_t timeoutMs);

// Copies the counters. Returns 0, -2 for a null argument. Any thread.
int32_t v2xpub_UdpSocketGetStats(V2X_UDPSOCKHANDLE handle, v2xpub_UdpSocketStats_t* stats);

// Calls `visit` with the name and the counters of every open socket, newest first. `visit` must not open or close a
// socket: other threads wait with that until the call returns. Any thread.
using v2xpub_statsFun = void (*)(void* arg, const char* sockName, const v2xpub_UdpSocketStats_t* stats);
void v2xpub_UdpSocketVisitStats(v2xpub_statsFun visit, void* arg);

// ---- checksums -----------------------------------------------------------------------------------------------------

// CRC-16, least significant bit first, without final inversion, of `length` bytes. The polynomial is reflected
// (0xA001 for x^16 + x^15 + x^2 + 1); initial value 0xFFFF with it is CRC-16/MODBUS, 0 is CRC-16/ARC.
// Returns 0, -2 for a null argument. Any thread.
int32_t v2xpub_Crc16(uint16_t initial, uint16_t polynomial, const uint8_t* data, uint32_t length, uint16_t* crc_out);
