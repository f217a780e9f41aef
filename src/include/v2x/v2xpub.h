// Process services: time, periodic tasks, UDP sockets and checksums.
#pragma once

#include <cstdint>

// Prepares the services: reads the time zone and, at the first call, checks real-time scheduling. Logs one warning if
// the process may not use real-time scheduling. v2xpub_TaskCreate calls this function, too. Returns 0.
int32_t v2xpub_PubSubInit(void);

// Returns the wall clock time in microseconds since 1970-01-01 00:00:00 UTC. May be called on any thread.
uint64_t v2xpub_CommGetCurrentTime64(void);

// Returns the monotonic time in microseconds. A step of the wall clock does not change it. May be called on any thread.
uint64_t v2xpub_GetMonotonicTime(void);

// ---- periodic tasks ------------------------------------------------------------------------------------------------

using V2X_TASKHANDLE = struct v2xpub_task*;

enum e_v2xtask_type : int32_t {
    V2XTASK_TYPE_NONE = 0, // SCHED_OTHER
    V2XTASK_TYPE_FIFO = 1, // SCHED_FIFO
    V2XTASK_TYPE_RR = 2,   // SCHED_RR
    V2XTASK_TYPE_OTHER = 3 // SCHED_OTHER
};

using v2xpub_taskFun = void (*)(void* arg);

struct v2xpub_TaskInitPara_t {
    char m_taskName[32];  // NUL-terminated; the first 15 characters name the thread
    uint32_t m_priority;  // 1 to 99 for SCHED_FIFO and SCHED_RR; ignored for SCHED_OTHER
    uint32_t m_intervals; // period in microseconds, at least 1000
    e_v2xtask_type m_tskType;
    bool m_isOneShot;             // true: the task runs once, one period after v2xpub_TaskCreate
    void* mp_arg;                 // argument of the three routines
    v2xpub_taskFun f_tskFunEnter; // called once on the task's thread, before the first run; may be null
    v2xpub_taskFun f_tskFunExec;  // called every period on the task's thread; must not be null
    v2xpub_taskFun f_tskFunExit;  // called once on the task's thread, after the last run; may be null
    bool m_eventTrigFlag;         // must be false: event triggers are not supported
};

// Starts a task on a new thread. The thread has a stack of 512 KiB and blocks SIGINT, SIGQUIT and SIGTERM. The first
// run starts one period after the call. Deadlines are absolute on the monotonic clock, so the period does not drift. A
// run that takes longer than a period makes the task skip the missed deadlines. If the process may not use real-time
// scheduling, the task runs with SCHED_OTHER. v2xwatch.h watches the thread of a periodic task, not of a one-shot task.
// The function stores the handle before any routine runs. Returns 0; -2 for a null or invalid argument; -3 if the
// thread cannot be started. On failure *handle is unchanged.
int32_t v2xpub_TaskCreate(V2X_TASKHANDLE* handle, const v2xpub_TaskInitPara_t* para);

// Waits for the current run, ends the task and frees the handle. Ignores a null handle. The task's own routines must
// not call this function. A task that is never deleted runs until the process ends. Returns 0.
int32_t v2xpub_TaskDelete(V2X_TASKHANDLE handle);

// ---- UDP sockets ---------------------------------------------------------------------------------------------------

using V2X_UDPSOCKHANDLE = struct v2xpub_udpSocket*;

// A datagram of m_curMsgLen bytes at mp_data. The caller of v2xpub_UdpSocketRecv sets m_curMsgLen to the buffer's size.
struct v2xpub_UdpSocketDataHead_t {
    int16_t m_curMsgLen;
    uint8_t* mp_data;
};

// Receive callback, which must return within ten seconds (v2xwatch.h). `p_data` points to a v2xpub_UdpSocketDataHead_t.
// `addr` points to the sender's sockaddr of `addrLen` bytes. Both are valid only during the call. The callback runs on
// the socket's receive thread, for one datagram after another.
using v2xpub_msgFunc = void (*)(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);

// IPv4 address and port in host byte order; all 0 if unknown.
struct v2xpub_address_t {
    uint32_t ip = 0;
    uint16_t port = 0;
};

// Returns the address of a sender. `addr` and `addrLen` are the arguments of a receive callback.
v2xpub_address_t v2xpub_ReadAddress(const void* addr, int16_t addrLen);

// A dotted IPv4 address as text, NUL-terminated.
struct v2xpub_ipText_t {
    char text[16];
};
v2xpub_ipText_t v2xpub_FormatIp(v2xpub_address_t address);

// One block of addresses: each address whose bits under `mask` equal `network`. Host byte order.
struct v2xpub_addressBlock_t {
    uint32_t network;
    uint32_t mask;
};

// Reads a dotted IPv4 address, or an address block like "192.168.1.0/24". Returns 0; -2 for any other text, for a null
// argument, and for a block whose address has bits beyond the prefix.
int32_t v2xpub_ParseAddressBlock(const char* text, v2xpub_addressBlock_t* block);

// Checks the local address of a socket. Returns null for a dotted IPv4 address that a socket can be bound to, otherwise
// the reason. 0.0.0.0 is valid; multicast and broadcast addresses are not.
const char* v2xpub_CheckLocalAddress(const char* text);

inline constexpr int32_t V2XPUB_SENDERS_MAX = 16;

// The senders whose datagrams a socket accepts. A count of 0 accepts every sender.
struct v2xpub_senders_t {
    int32_t count = 0;
    v2xpub_addressBlock_t blocks[V2XPUB_SENDERS_MAX] = {};
};

// Returns true if the senders include the address.
bool v2xpub_IsSender(const v2xpub_senders_t& senders, uint32_t ip);

// Journal entry of the kind `datagram`: a datagram that a socket has received or sent. Its bytes follow.
struct v2xpub_tap_t {
    uint64_t time; // wall clock, microseconds
    bool isSent;
    char socket[23]; // name of the socket, NUL-terminated
    v2xpub_address_t local;
    v2xpub_address_t remote;
};

struct v2xpub_SocketInitPara_t {
    char m_sockName[32];      // name in log lines; NUL-terminated
    char m_localIP[32];       // dotted IPv4 address to bind; NUL-terminated
    uint16_t m_svrPort;       // local port of a server, not 0
    uint16_t m_cliPort;       // local port of a client; with 0 the kernel chooses the port
    int8_t m_svrEnable;       // 1: the socket is a server and is bound to m_svrPort
    int8_t m_cliEnable;       // 1: the socket is a client; it is bound to m_cliPort unless it is also a server
    v2xpub_msgFunc f_msgFunc; // callback of a server; if null, only v2xpub_UdpSocketRecv receives datagrams
    // Sender filter. The socket drops and counts datagrams of other senders. A line at V2XLOG_WARN reports each new
    // sender, and then at most one line a minute: "PEER: datagram from ADDRESS refused, not in KEY (COUNT so far)".
    v2xpub_senders_t m_senders = {};
    const char* m_peer = "";       // name of the peer in these lines; in static storage
    const char* m_sendersKey = ""; // name of the configuration key in these lines; in static storage
};

// Counters of one socket since it was opened.
struct v2xpub_UdpSocketStats_t {
    uint64_t received;      // datagrams delivered to the callback or by v2xpub_UdpSocketRecv
    uint64_t tooLong;       // datagrams dropped: longer than 32767 bytes or than the buffer of v2xpub_UdpSocketRecv
    uint64_t kernelDrops;   // datagrams that the kernel dropped because the socket's receive buffer was full
    uint64_t sent;          // datagrams that the kernel accepted
    uint64_t sendErrors;    // datagrams that the kernel rejected
    uint64_t refusedSender; // datagrams dropped by the sender filter
};

// Opens and binds a socket. `rcvBufBytes` is the requested size of the receive buffer; 0 requests 4 MiB for a server
// and the kernel's default for a client. Logs a line if the buffer is smaller than requested. Stores the handle before
// the callback runs for the first time. Returns 0; -2 for a null or invalid argument (server without a port, invalid
// address, neither server nor client); -3 if the socket cannot be opened or bound, with the reason in errno. On failure
// *handle is unchanged. If no argument is null, a failure logs socket, address, port and reason.
int32_t v2xpub_UdpSocketInit(V2X_UDPSOCKHANDLE* handle, const v2xpub_SocketInitPara_t* para, int32_t rcvBufBytes);

// Closes the socket, waits for its receive thread and frees the handle. Ignores a null handle. The socket's callback
// must not call this function. Returns 0.
int32_t v2xpub_UdpSocketExit(V2X_UDPSOCKHANDLE handle);

// Sets the destination of v2xpub_UdpSocketReqSend: dotted IPv4 address and port. Other threads may send at the same
// time. Returns 0; -2 for a null handle, a null or invalid address, or port 0.
int32_t v2xpub_UdpSocketSetSendAddr(V2X_UDPSOCKHANDLE handle, const char* ip, uint16_t port);

// Sends one datagram to the destination without waiting. Returns 0; -2 for a null handle or datagram, a negative length
// or a socket without destination; -3 if the kernel rejects the datagram, with the reason in errno. Counts the rejected
// datagrams and logs them at a limited rate.
int32_t v2xpub_UdpSocketReqSend(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t* data);

// Sends one datagram to the sender of a received datagram. `addr` and `addrLen` are the arguments of the callback.
// Returns 0; -2 for a null or invalid argument; -3 as v2xpub_UdpSocketReqSend does.
int32_t v2xpub_UdpSocketRespSend(V2X_UDPSOCKHANDLE handle, const v2xpub_UdpSocketDataHead_t* data, const void* addr,
                                 int16_t addrLen);

// Waits up to `timeoutMs` milliseconds for a datagram on a socket without callback; 0 does not wait. Stores the
// datagram in data->mp_data, a buffer of data->m_curMsgLen bytes, and sets m_curMsgLen to the datagram's length. Drops
// and counts a datagram of a refused sender, and one that is longer than the buffer. Returns 0; 1 on a time-out; -2 for
// a null or invalid argument; -3 on an error of the socket.
int32_t v2xpub_UdpSocketRecv(V2X_UDPSOCKHANDLE handle, v2xpub_UdpSocketDataHead_t* data, int32_t timeoutMs);

// Copies the counters of the socket. Returns 0; -2 for a null argument. May be called on any thread.
int32_t v2xpub_UdpSocketGetStats(V2X_UDPSOCKHANDLE handle, v2xpub_UdpSocketStats_t* stats);

// Calls `visit` with the name and the counters of every open socket, newest first. `visit` must not open or close a
// socket. Other threads that open or close a socket wait until this function returns. May be called on any thread.
using v2xpub_statsFun = void (*)(void* arg, const char* sockName, const v2xpub_UdpSocketStats_t* stats);
void v2xpub_UdpSocketVisitStats(v2xpub_statsFun visit, void* arg);

// ---- service manager -----------------------------------------------------------------------------------------------

// Sends a message to the service manager, as sd_notify(3) does, but without waiting: sd_notify waits until the manager
// reads its socket. Returns 0; -2 for a null message or without a valid NOTIFY_SOCKET in the environment; -3 if the
// message is lost.
int32_t v2xpub_Notify(const char* message);

// ---- checksums -----------------------------------------------------------------------------------------------------

// Computes the CRC-16 of `length` bytes, least significant bit first, without final inversion. The polynomial is
// reflected: 0xA001 means x^16 + x^15 + x^2 + 1. With this polynomial the initial value 0xFFFF gives CRC-16/MODBUS, and
// 0 gives CRC-16/ARC. Returns 0; -2 for a null argument. May be called on any thread.
int32_t v2xpub_Crc16(uint16_t initial, uint16_t polynomial, const uint8_t* data, uint32_t length, uint16_t* crc_out);
