#include "spat_conv_signal_machine_1743_stream.h"

#include <algorithm>
#include <cstddef>
#include <cstring>
#include <mutex>
#include <span>

#include "spat_conv_signal_machine_1743_light.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xlog.h"

namespace {

// Each received byte counts in exactly one of these; bytes in the ring are not counted yet.
v2x_counter g_framedBytes{"1743", "bytes_framed"};
v2x_counter g_skippedBytes{"1743", "bytes_skipped"}; // before an opening delimiter
v2x_counter g_cutBytes{"1743", "bytes_cut"};         // of a frame that was incomplete when the ring ran empty
v2x_counter g_droppedBytes{"1743", "bytes_dropped"}; // the ring was full
// Each frame counts in one of the rejections here, or where its content is converted.
v2x_counter g_frames{"1743", "frames"}; // all
v2x_counter g_tooShort{"1743", "too_short"};
v2x_counter g_tooLong{"1743", "too_long"};
v2x_counter g_notUnescaped{"1743", "not_unescaped"};
v2x_counter g_wrongCrc{"1743", "wrong_crc"};

constexpr uint8_t DELIMITER = 0xC0;
constexpr uint8_t ESCAPE = 0xDB;
constexpr uint8_t ESCAPED_DELIMITER = 0xDC;
constexpr uint8_t ESCAPED_ESCAPE = 0xDD;

constexpr size_t RING_SIZE = 20480;
constexpr size_t FRAME_LENGTH_MIN = 31;   // escaped, with delimiters
constexpr size_t FRAME_LENGTH_MAX = 5120; // likewise
constexpr size_t FRAME_OVERHEAD = 4;      // two delimiters and the CRC

constexpr uint16_t CRC_INITIAL = 0xFFFF; // CRC-16/MODBUS
constexpr uint16_t CRC_POLYNOMIAL = 0xA001;

// Byte ring between the receive thread and the processing task. Every slot can hold data; -1 marks an empty ring.
struct SerialBuffer_t {
    uint8_t m_data[RING_SIZE];
    int m_front = -1; // index of the oldest byte
    int m_rear = -1;  // index of the newest byte
    std::mutex m_mutex{};
};

SerialBuffer_t g_seria_buffer;

// The next functions are called with m_mutex held.

bool isEmpty(const SerialBuffer_t& buffer) {
    return buffer.m_front == -1;
}

size_t Next(int index, size_t steps) {
    return (static_cast<size_t>(index) + steps) % RING_SIZE;
}

size_t Stored(const SerialBuffer_t& buffer) {
    const size_t distance = Next(buffer.m_rear - buffer.m_front, RING_SIZE);
    return isEmpty(buffer) ? 0 : distance + 1;
}

// The oldest bytes, up to the newest one or the end of the storage.
std::span<const uint8_t> FrontBlock(const SerialBuffer_t& buffer) {
    const size_t front = Next(buffer.m_front, 0);
    return std::span<const uint8_t>(buffer.m_data).subspan(front, std::min(Stored(buffer), RING_SIZE - front));
}

void Remove(SerialBuffer_t& buffer, size_t count) {
    if (count == Stored(buffer)) {
        buffer.m_front = -1;
        buffer.m_rear = -1;
    } else {
        buffer.m_front = static_cast<int>(Next(buffer.m_front, count));
    }
}

// Appends the bytes that there is room for and returns how many were dropped.
size_t enqueue(SerialBuffer_t& buffer, std::span<const uint8_t> bytes) {
    const std::span<const uint8_t> taken = bytes.first(std::min(bytes.size(), RING_SIZE - Stored(buffer)));
    if (!taken.empty()) {
        const size_t start = isEmpty(buffer) ? 0 : Next(buffer.m_rear, 1);
        const size_t first = std::min(taken.size(), RING_SIZE - start);
        memcpy(buffer.m_data + start, taken.data(), first);
        memcpy(buffer.m_data, taken.data() + first, taken.size() - first);
        buffer.m_front = isEmpty(buffer) ? 0 : buffer.m_front;
        buffer.m_rear = static_cast<int>((start + taken.size() - 1) % RING_SIZE);
    }
    return bytes.size() - taken.size();
}

struct Dequeued {
    size_t count = 0;      // bytes removed from the ring
    bool hasEnded = false; // the last of them is a delimiter
};

// Removes the bytes up to and including the next delimiter, or all of them, and stores those that `out` has room for.
Dequeued dequeue(SerialBuffer_t& buffer, std::span<uint8_t> out) {
    Dequeued result;
    while (!isEmpty(buffer) && !result.hasEnded) {
        std::span<const uint8_t> block = FrontBlock(buffer);
        const auto delimiter = static_cast<const uint8_t*>(memchr(block.data(), DELIMITER, block.size()));
        if (delimiter != nullptr) {
            block = {block.data(), delimiter + 1};
            result.hasEnded = true;
        }
        const size_t stored = std::min(block.size(), out.size());
        std::copy_n(block.begin(), stored, out.begin());
        out = out.subspan(stored);
        result.count += block.size();
        Remove(buffer, block.size());
    }
    return result;
}

// Removes one frame from the ring and stores it in `data` (FRAME_LENGTH_MAX bytes), delimiters included. Bytes before
// an opening delimiter are discarded. Returns 0; -3 when the ring ran empty (an incomplete frame is lost); -4 for a
// frame that is too long, which is discarded up to its closing delimiter or the end of the ring.
int32_t GetOneCompleteDataPacket(SerialBuffer_t& buffer, uint8_t* data, size_t* data_len) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    const std::lock_guard<std::mutex> guard(buffer.m_mutex);
    const Dequeued before = dequeue(buffer, {});
    g_skippedBytes.Add(before.count - (before.hasEnded ? 1 : 0));
    if (!before.hasEnded) {
        return ret = -3;
    }
    data[0] = DELIMITER;
    const Dequeued body = dequeue(buffer, {data + 1, FRAME_LENGTH_MAX - 1});
    *data_len = 1 + body.count;
    const bool isTooLong = *data_len + (body.hasEnded ? 0 : 1) > FRAME_LENGTH_MAX;
    (body.hasEnded || isTooLong ? g_framedBytes : g_cutBytes).Add(*data_len);
    if (isTooLong) {
        ret = -4;
    } else if (!body.hasEnded) {
        ret = -3;
    }
    return ret;
}

// The byte that the escape sequence at the front stands for; -1 when there is none.
int32_t Unescaped(std::span<const uint8_t> bytes) {
    if (bytes.size() < 2 || bytes[0] != ESCAPE) {
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

// Unescapes `in` and returns the length of the result. pDataOut has room for as many bytes as `in` has.
size_t ConvertDecodeData(std::span<const uint8_t> in, uint8_t* pDataOut) {
    const int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    size_t written = 0;
    for (size_t i = 0; i < in.size(); i++) {
        const int32_t unescaped = Unescaped(in.subspan(i));
        pDataOut[written++] = unescaped < 0 ? in[i] : static_cast<uint8_t>(unescaped);
        i += unescaped < 0 ? 0 : 1;
    }
    return written;
}

// Unescapes one frame of at least FRAME_LENGTH_MIN bytes, checks its CRC and passes the payload on. Returns 0 when the
// CRC is correct, whatever the conversion's result; -3 for a wrong length; -4 when the CRC could not be computed; -6
// for a wrong CRC.
int32_t DealSignalMachineRecvData(std::span<const uint8_t> data) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    uint8_t unescaped[FRAME_LENGTH_MAX];
    const size_t length = ConvertDecodeData(data, unescaped);
    if (length >= sizeof unescaped) {
        g_notUnescaped.Add();
        V2XLOG(g_1743Log, V2XLOG_ERROR, "ConvertDecodeData error");
        return ret = -3;
    }
    const std::span<const uint8_t> payload(unescaped + 1, length - FRAME_OVERHEAD);
    const uint8_t* crc = payload.data() + payload.size();
    uint16_t calculated = 0;
    if (v2xpub_Crc16(CRC_INITIAL, CRC_POLYNOMIAL, payload.data(), static_cast<uint16_t>(payload.size()), &calculated) !=
        0) {
        V2XLOG(g_1743Log, V2XLOG_ERROR, "v2xpub_Crc16 exec error");
        return ret = -4;
    }
    const uint16_t received = static_cast<uint16_t>(crc[0] | crc[1] << 8);
    if (calculated != received) {
        g_wrongCrc.Add();
        V2XLOG(g_1743Log, V2XLOG_ERROR, "crc error,calc:%04X,recv:%04X", calculated, received);
        return ret = -6;
    }
    DealSignalMachineDataTable(payload);
    return ret;
}

void ProcessFrames() {
    uint8_t frame[FRAME_LENGTH_MAX];
    size_t length = 0;
    int32_t got = 0;
    while ((got = GetOneCompleteDataPacket(g_seria_buffer, frame, &length)) != -3) {
        g_frames.Add();
        if (got != 0 || length < FRAME_LENGTH_MIN) {
            (got != 0 ? g_tooLong : g_tooShort).Add();
            V2XLOG(g_1743Log, V2XLOG_WARN, "GetOneCompleteDataPacket error");
        } else {
            DealSignalMachineRecvData({frame, length});
        }
    }
}

} // namespace

void initBuffer(void) {
    const std::lock_guard<std::mutex> guard(g_seria_buffer.m_mutex);
    g_seria_buffer.m_front = -1;
    g_seria_buffer.m_rear = -1;
}

void v2xspatconv_GetSignalMachine1743DataRcv(V2X_UDPSOCKHANDLE /*handle*/, void* p_data, void* /*addr*/,
                                             int16_t /*addrLen*/) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    const v2xpub_UdpSocketDataHead_t* datagram = static_cast<const v2xpub_UdpSocketDataHead_t*>(p_data);
    V2XLOG(g_1743Log, V2XLOG_VERBOSE, "len=%d Recv Signal Machine Data:", datagram->m_curMsgLen);
    if (v2xlog_Enabled(g_1743Log, V2XLOG_VERBOSE)) {
        v2xlog_HexDump(v2xlog_Handle(g_1743Log), V2XLOG_VERBOSE, datagram->mp_data, datagram->m_curMsgLen);
    }
    const size_t length = static_cast<size_t>(std::max<int16_t>(datagram->m_curMsgLen, 0));
    size_t dropped = 0;
    {
        const std::lock_guard<std::mutex> guard(g_seria_buffer.m_mutex);
        dropped = enqueue(g_seria_buffer, {datagram->mp_data, length});
    }
    g_droppedBytes.Add(dropped);
    V2XLOG_TIMES(g_1743Log, V2XLOG_ERROR, static_cast<uint32_t>(dropped), "enqueue signal machine data error");
}

void DealSignalMachine1743DataRcv(void* /*arg*/) {
    V2XLOG(g_1743Log, V2XLOG_TRACE, "%s start", __func__);
    ProcessFrames();
    V2XLOG(g_1743Log, V2XLOG_TRACE, "Data processing completed");
    V2XLOG(g_1743Log, V2XLOG_TRACE, "%s end, ret:%d", __func__, 0);
}
