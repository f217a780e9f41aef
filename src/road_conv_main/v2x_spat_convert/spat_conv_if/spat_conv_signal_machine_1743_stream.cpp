#include "spat_conv_signal_machine_1743_stream.h"

#include <cstddef>
#include <span>

#include "spat_conv_signal_machine_1743_light.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xlog.h"

namespace {

// Every byte that comes is one of these, or waits in the ring.
v2x_counter g_framedBytes{"1743", "bytes_framed"};
v2x_counter g_skippedBytes{"1743", "bytes_skipped"}; // in front of a frame
v2x_counter g_cutBytes{"1743", "bytes_cut"};         // of a frame whose end did not come in time
v2x_counter g_droppedBytes{"1743", "bytes_dropped"}; // the ring being full
// Every frame is one of these, or counted where its content is read.
v2x_counter g_frames{"1743", "frames"}; // all
v2x_counter g_tooShort{"1743", "too_short"};
v2x_counter g_tooLong{"1743", "too_long"};
v2x_counter g_notUnescaped{"1743", "not_unescaped"};
v2x_counter g_wrongCrc{"1743", "wrong_crc"};

constexpr uint8_t DELIMITER = 0xC0;
constexpr uint8_t ESCAPE = 0xDB;
constexpr uint8_t ESCAPED_DELIMITER = 0xDC;
constexpr uint8_t ESCAPED_ESCAPE = 0xDD;

constexpr uint16_t FRAME_LENGTH_MIN = 31; // delimiters included, escaped
constexpr uint16_t FRAME_OVERHEAD = 4;    // two delimiters and the checksum

constexpr uint16_t CRC_INITIAL = 0xFFFF; // CRC-16/MODBUS
constexpr uint16_t CRC_POLYNOMIAL = 0xA001;

SerialBuffer_t g_seria_buffer;

// What the escape at the front stands for, or -1 when it is none.
int32_t Unescaped(const uint8_t* bytes, int32_t available) {
    if (available < 2 || bytes[0] != ESCAPE) {
        return -1;
    }
    switch (bytes[1]) {
    case ESCAPED_DELIMITER:
        return DELIMITER;
    case ESCAPED_ESCAPE:
        return ESCAPE;
    default:
        return -1;
    }
}

// With m_mutex held: one byte in.
int32_t Put(SerialBuffer_t& buffer, uint8_t item) {
    if (isFull(&buffer) != 0) {
        return -1;
    }
    if (isEmpty(&buffer) != 0) {
        buffer.m_front = 0;
        buffer.m_rear = 0;
    } else {
        buffer.m_rear = (buffer.m_rear + 1) % V2X_1743_RING_SIZE;
    }
    buffer.m_data[buffer.m_rear] = item;
    return 0;
}

// With m_mutex held: one byte out.
int32_t Pop(SerialBuffer_t& buffer, uint8_t& item) {
    if (isEmpty(&buffer) != 0) {
        return -1;
    }
    item = buffer.m_data[buffer.m_front];
    if (buffer.m_front == buffer.m_rear) {
        buffer.m_front = -1;
        buffer.m_rear = -1;
    } else {
        buffer.m_front = (buffer.m_front + 1) % V2X_1743_RING_SIZE;
    }
    return 0;
}

// Puts in what there is room for, and tells how many bytes there was none for.
uint32_t PutAll(SerialBuffer_t& buffer, std::span<const uint8_t> bytes) {
    const std::lock_guard<std::mutex> guard(buffer.m_mutex);
    uint32_t dropped = 0;
    for (const uint8_t byte : bytes) {
        dropped += Put(buffer, byte) != 0 ? 1 : 0;
    }
    return dropped;
}

void ProcessFrames() {
    uint8_t frame[V2X_1743_FRAME_SIZE];
    for (;;) {
        uint16_t length = 0;
        const int32_t got = GetOneCompleteDataPacket(&g_seria_buffer, frame, &length);
        if (got == -3) {
            return;
        }
        g_frames.Add();
        if (got != 0 || length < FRAME_LENGTH_MIN) {
            (got != 0 ? g_tooLong : g_tooShort).Add();
            V2XLOG(g_1743Log, V2XLOG_WARN, "GetOneCompleteDataPacket error");
            continue;
        }
        if (frame[0] != DELIMITER || frame[length - 1] != DELIMITER) {
            V2XLOG(g_1743Log, V2XLOG_ERROR, "Invalid Signal Machine Data");
            continue;
        }
        DealSignalMachineRecvData(frame, length);
    }
}

} // namespace

void initBuffer(SerialBuffer_t* buffer) {
    const std::lock_guard<std::mutex> guard(buffer->m_mutex);
    buffer->m_front = -1;
    buffer->m_rear = -1;
}

int isEmpty(const SerialBuffer_t* buffer) {
    return buffer->m_front == -1 ? 1 : 0;
}

int isFull(const SerialBuffer_t* buffer) {
    return (buffer->m_rear + 1) % V2X_1743_RING_SIZE == buffer->m_front ? 1 : 0;
}

int32_t enqueue(SerialBuffer_t* buffer, uint8_t item) {
    const std::lock_guard<std::mutex> guard(buffer->m_mutex);
    return Put(*buffer, item);
}

int32_t dequeue(SerialBuffer_t* buffer, uint8_t* item_out) {
    const std::lock_guard<std::mutex> guard(buffer->m_mutex);
    return Pop(*buffer, *item_out);
}

int32_t GetOneCompleteDataPacket(SerialBuffer_t* p_seria_buffer, uint8_t* data, uint16_t* data_len) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    if (p_seria_buffer == nullptr || data == nullptr || data_len == nullptr) {
        V2XLOG(g_1743Log, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    const std::lock_guard<std::mutex> guard(p_seria_buffer->m_mutex);
    uint16_t index = 0;
    while (index < V2X_1743_FRAME_SIZE) {
        if (Pop(*p_seria_buffer, data[index]) != 0) {
            g_cutBytes.Add(index);
            return ret = -3;
        }
        if (index > 0 && data[index] == DELIMITER) {
            g_framedBytes.Add(index + uint64_t{1});
            *data_len = static_cast<uint16_t>(index + 1);
            return ret;
        }
        // Up to an opening delimiter every byte is overwritten by the next.
        if (data[0] == DELIMITER) {
            index++;
        } else {
            g_skippedBytes.Add();
        }
    }
    g_framedBytes.Add(index);
    return ret = -4;
}

int32_t ConvertDecodeData(const uint8_t* pdataIn, uint16_t dataLen, uint8_t* pDataOut, uint16_t* pOutLen) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    if (pdataIn == nullptr || pDataOut == nullptr || pOutLen == nullptr) {
        V2XLOG(g_1743Log, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    uint16_t written = 0;
    for (int32_t i = 0; i < dataLen; i++) {
        const int32_t unescaped = Unescaped(pdataIn + i, dataLen - i);
        pDataOut[written++] = unescaped < 0 ? pdataIn[i] : static_cast<uint8_t>(unescaped);
        i += unescaped < 0 ? 0 : 1;
    }
    *pOutLen = written;
    return ret;
}

int32_t DealSignalMachineRecvData(const uint8_t* data, uint16_t data_len) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    if (data == nullptr) {
        V2XLOG(g_1743Log, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    uint8_t unescaped[V2X_1743_FRAME_SIZE];
    uint16_t length = 0;
    if (data_len <= sizeof unescaped) {
        ConvertDecodeData(data, data_len, unescaped, &length);
    }
    if (length < FRAME_OVERHEAD || length >= sizeof unescaped) {
        g_notUnescaped.Add();
        V2XLOG(g_1743Log, V2XLOG_ERROR, "ConvertDecodeData error");
        return ret = -3;
    }
    const uint8_t* payload = unescaped + 1;
    const uint16_t payloadLength = static_cast<uint16_t>(length - FRAME_OVERHEAD);
    uint16_t calculated = 0;
    if (v2xpub_Crc16(CRC_INITIAL, CRC_POLYNOMIAL, payload, payloadLength, &calculated) != 0) {
        V2XLOG(g_1743Log, V2XLOG_ERROR, "v2xpub_Crc16 exec error");
        return ret = -4;
    }
    const uint16_t received = static_cast<uint16_t>(payload[payloadLength] | payload[payloadLength + 1] << 8);
    if (calculated != received) {
        g_wrongCrc.Add();
        V2XLOG(g_1743Log, V2XLOG_ERROR, "crc error,calc:%04X,recv:%04X", calculated, received);
        return ret = -6;
    }
    DealSignalMachineDataTable({payload, payloadLength});
    return ret;
}

void v2xspatconv_Init1743Ring(void) {
    initBuffer(&g_seria_buffer);
}

void v2xspatconv_GetSignalMachine1743DataRcv(V2X_UDPSOCKHANDLE /*handle*/, void* p_data, void* /*addr*/,
                                             int16_t /*addrLen*/) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    const v2xpub_UdpSocketDataHead_t* datagram = static_cast<const v2xpub_UdpSocketDataHead_t*>(p_data);
    if (datagram == nullptr || datagram->mp_data == nullptr) {
        V2XLOG(g_1743Log, V2XLOG_ERROR, "input param error");
        return;
    }
    V2XLOG(g_1743Log, V2XLOG_VERBOSE, "len=%d Recv Signal Machine Data:", datagram->m_curMsgLen);
    if (v2xlog_Enabled(g_1743Log, V2XLOG_VERBOSE)) {
        v2xlog_HexDump(v2xlog_Handle(g_1743Log), V2XLOG_VERBOSE, datagram->mp_data, datagram->m_curMsgLen);
    }
    if (datagram->m_curMsgLen > 0) {
        const size_t length = static_cast<size_t>(datagram->m_curMsgLen);
        const uint32_t dropped = PutAll(g_seria_buffer, {datagram->mp_data, length});
        g_droppedBytes.Add(dropped);
        V2XLOG_TIMES(g_1743Log, V2XLOG_ERROR, dropped, "enqueue signal machine data error");
    }
}

void DealSignalMachine1743DataRcv(void* /*arg*/) {
    V2XLOG(g_1743Log, V2XLOG_TRACE, "%s start", __func__);
    ProcessFrames();
    V2XLOG(g_1743Log, V2XLOG_TRACE, "Data processing completed");
    V2XLOG(g_1743Log, V2XLOG_TRACE, "%s end, ret:%d", __func__, 0);
}
