// The controller's byte stream, for the files of its adapter: byte ring, frames between 0xC0, escapes, checksum.
#pragma once

#include <cstdint>
#include <mutex>

#include "v2x/v2xpub.h"

inline constexpr int32_t V2X_1743_RING_SIZE = 20480;
// Room of one frame with its delimiters, escaped.
inline constexpr uint16_t V2X_1743_FRAME_SIZE = 5120;

// Byte ring between the receive thread and the processing task. Every slot holds data; -1 marks emptiness.
struct SerialBuffer_t {
    uint8_t m_data[V2X_1743_RING_SIZE];
    int m_front = -1; // index of the oldest byte
    int m_rear = -1;  // index of the newest byte
    std::mutex m_mutex{};
};

// Empties the ring.
void initBuffer(SerialBuffer_t* buffer);
// With m_mutex held: 1 or 0.
int isEmpty(const SerialBuffer_t* buffer);
int isFull(const SerialBuffer_t* buffer);
// One byte in or out. Returns 0; -1 when the ring is full (the byte is dropped) or empty. Any thread.
int32_t enqueue(SerialBuffer_t* buffer, uint8_t item);
int32_t dequeue(SerialBuffer_t* buffer, uint8_t* item_out);

// Takes bytes out up to the end of one frame, delimiters included, and stores it in `data` (V2X_1743_FRAME_SIZE bytes).
// Bytes in front of an opening 0xC0 are passed over. Returns 0; -2 for a null argument; -3 when the ring ran empty
// (what was taken is lost); -4 when there is no closing 0xC0 within the room of a frame (likewise).
int32_t GetOneCompleteDataPacket(SerialBuffer_t* p_seria_buffer, uint8_t* data, uint16_t* data_len);

// Undoes the escapes: DB DC to C0, DB DD to DB; everything else is kept. pDataOut has room for dataLen bytes.
// Returns 0; -2 for a null argument.
int32_t ConvertDecodeData(const uint8_t* pdataIn, uint16_t dataLen, uint8_t* pDataOut, uint16_t* pOutLen);

// Takes one frame with its delimiters: escapes, checksum, and on to the light status. Returns 0 when the checksum was
// right, whatever became of the payload; -2 for null; -3 when the frame has a wrong length; -4 when no checksum could
// be computed; -6 when it is wrong.
int32_t DealSignalMachineRecvData(const uint8_t* data, uint16_t data_len);

// Empties the adapter's ring. Before the socket opens.
void v2xspatconv_Init1743Ring(void);

// Receive callback of the controller's socket (v2xpub_msgFunc): puts the bytes into the ring; a full ring drops them
// one by one, with a line each.
void v2xspatconv_GetSignalMachine1743DataRcv(V2X_UDPSOCKHANDLE handle, void* p_data, void* addr, int16_t addrLen);

// Task routine, every 500 ms: takes all frames out of the ring. `arg` is not used.
void DealSignalMachine1743DataRcv(void* arg);
