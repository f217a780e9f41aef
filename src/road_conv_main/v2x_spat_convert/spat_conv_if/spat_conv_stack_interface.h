// The daemon's side of the stack application: its sockets, the hand-over of every reading as an IPC SPAT record, and
// the SPAT that the stack application holds on its way to the cloud.
#pragma once

#include <cstdint>

#include "spat_conv_config.h"
#include "v2x/v2xipc_data.h"
#include "v2x/v2xpub.h"

// Opens the three sockets "SPAT_SEND_APP", "GET_SPAT_DATA" and "SPAT_C_LOGTOOL" from the port table. Returns 0, or -3
// when one cannot be opened (the later ones stay closed; sending through a closed one does nothing). Main thread, once.
int32_t v2xspatconv_StackInterfaceInit(const spat_conv_config_t* spatconv_cfg);

// Hands one reading to the stack application: frames the record and sends it, waiting for nothing. The record lies in a
// buffer of V2XIPC_RECORD_SIZE bytes, stays the caller's and is free for reuse at once. Whether the datagram arrives is
// not known. Any thread; allocates nothing, needs about 6 KiB of stack.
// Returns 0; -2 for null; -3 when the record claims more entries than its buffer holds (logged, not sent).
int32_t v2xspatconv_SpatNotify(const v2xipc_phases_t* spat_ipc);

// Writes the RSU data block of a record at pData (room for 11 + V2XIPC_RECORD_SIZE bytes) and its length to plen.
// Returns 0; -2 for a null argument; -3 when the record claims more than its V2XIPC_RECORD_SIZE bytes.
int32_t spat_fill(uint8_t* pData, const v2xipc_phases_t* spat_ipc, uint16_t* plen);

// Task routine, every 600 ms: asks the stack application for its SPAT, waits up to two seconds for the reply and queues
// it. At most 64 replies wait; the oldest goes then, with a warning. `arg` is not used. One thread.
void SendGetSpatDataToAPPTaskFun(void* arg);

// Task routine, every 300 ms: checks and decodes the queued replies in the order of their arrival and sends what they
// hold up to the cloud. `arg` is not used. One thread, another one than the requests' or the same.
void DealSpatDataRecvTaskFun(void* arg);

// Checks one reply datagram (m_curMsgLen bytes at mp_data, which may be changed) and decodes its items. Returns 0, also
// when an item does not decode or the data are of another type; -2 null or without bytes; -3 wrong head flag; -4 wrong
// length; -5 wrong command.
int32_t v2xspatconv_GetRsuDataResp(const v2xpub_UdpSocketDataHead_t* mp_data);

// Decodes the items of a data block that `size` bytes are left for, at most 64, and sends each message up to the cloud.
// Returns 0; -2 for null, too few bytes for a block, or at the first item that does not decode or runs past the bytes
// (the rest is skipped).
int32_t DealSpatDataRecv(uint8_t* pRsuData, size_t size);

// Writes the request's data block (type 11, number 1, no data: 11 bytes) at pData and 11 to plen. Returns 0; -2 for
// null.
int32_t GetSpatData_fill(uint8_t* pData, uint16_t* plen);

// Receive callback of the log tool's socket: reports or sets log levels and answers the sender. Runs on the socket's
// thread.
void GetLogCtl(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);
