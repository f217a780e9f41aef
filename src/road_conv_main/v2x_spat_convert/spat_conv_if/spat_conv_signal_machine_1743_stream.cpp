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

// Exactly one of these counters counts each received byte when the byte leaves the ring or is dropped.
v2x_counter g_framedBytes{"1743", "bytes_framed"};   // bytes of complete frames and of frames that are too long
v2x_counter g_skippedBytes{"1743", "bytes_skipped"}; // bytes before an opening delimiter
v2x_counter g_cutBytes{"1743", "bytes_cut"};         // bytes of a frame that was incomplete when the ring became empty
v2x_counter g_droppedBytes{"1743", "bytes_dropped"}; // bytes that did not fit in the ring
// g_frames counts every frame. One of the next four counters, or a counter of the light-status conversion, also counts
// the frame.
v2x_counter g_frames{"1743", "frames"};
v2x_counter g_tooShort{"1743", "too_short"};
v2x_counter g_tooLong{"1743", "too_long"};
v2x_counter g_notUnescaped{"1743", "not_unescaped"};
v2x_counter g_wrongCrc{"1743", "wrong_crc"};

constexpr uint8_t DELIMITER = 0xC0;
constexpr uint8_t ESCAPE = 0xDB;
constexpr uint8_t ESCAPED_DELIMITER = 0xDC;
constexpr uint8_t ESCAPED_ESCAPE = 0xDD;

constexpr size_t RING_SIZE = 20480;
// Limits of an escaped frame with its delimiters, in bytes.
constexpr size_t FRAME_LENGTH_MIN = 31;
constexpr size_t FRAME_LENGTH_MAX = 5120;
constexpr size_t FRAME_OVERHEAD = 4; // two delimiters and the CRC

constexpr uint16_t CRC_INITIAL = 0xFFFF; // CRC-16/MODBUS
constexpr uint16_t CRC_POLYNOMIAL = 0xA001;

// Byte ring between the receive thread and the processing task. Both indexes are -1 if the ring is empty.
struct SerialBuffer_t {
    uint8_t m_data[RING_SIZE];
    int m_front = -1;            // index of the oldest byte
    int m_rear = -1;             // index of the newest byte
    v2xpub_address_t m_sender{}; // of the last datagram; the ring mixes the bytes of all senders
    std::mutex m_mutex{};
};

SerialBuffer_t g_seria_buffer;

// The caller of the next functions has locked m_mutex.

bool isEmpty(const SerialBuffer_t& buffer) {
    return buffer.m_front == -1;
}

// Returns the index that is `steps` after `index`.
size_t AdvanceIndex(int index, size_t steps) {
    return (static_cast<size_t>(index) + steps) % RING_SIZE;
}

// Returns the number of bytes in the ring.
size_t CountStored(const SerialBuffer_t& buffer) {
    const size_t distance = AdvanceIndex(buffer.m_rear - buffer.m_front, RING_SIZE);
    return isEmpty(buffer) ? 0 : distance + 1;
}

// Returns the oldest bytes, up to the newest byte or the end of m_data.
std::span<const uint8_t> OldestBlock(const SerialBuffer_t& buffer) {
    const size_t front = AdvanceIndex(buffer.m_front, 0);
    return std::span<const uint8_t>(buffer.m_data).subspan(front, std::min(CountStored(buffer), RING_SIZE - front));
}

// Removes the `count` oldest bytes.
void RemoveOldest(SerialBuffer_t& buffer, size_t count) {
    if (count == CountStored(buffer)) {
        buffer.m_front = -1;
        buffer.m_rear = -1;
    } else {
        buffer.m_front = static_cast<int>(AdvanceIndex(buffer.m_front, count));
    }
}

// Appends the bytes until the ring is full. Returns the number of bytes that were dropped.
size_t enqueue(SerialBuffer_t& buffer, std::span<const uint8_t> bytes) {
    const std::span<const uint8_t> accepted = bytes.first(std::min(bytes.size(), RING_SIZE - CountStored(buffer)));
    if (!accepted.empty()) {
        const size_t start = isEmpty(buffer) ? 0 : AdvanceIndex(buffer.m_rear, 1);
        const size_t first = std::min(accepted.size(), RING_SIZE - start);
        memcpy(buffer.m_data + start, accepted.data(), first);
        memcpy(buffer.m_data, accepted.data() + first, accepted.size() - first);
        buffer.m_front = isEmpty(buffer) ? 0 : buffer.m_front;
        buffer.m_rear = static_cast<int>((start + accepted.size() - 1) % RING_SIZE);
    }
    return bytes.size() - accepted.size();
}

struct DequeueResult {
    size_t count = 0;          // number of bytes removed from the ring
    bool hasDelimiter = false; // true: the last removed byte is a delimiter
};

// Removes the bytes up to and including the next delimiter, or all bytes if the ring contains no delimiter. Stores the
// removed bytes in `out` until `out` is full.
DequeueResult dequeue(SerialBuffer_t& buffer, std::span<uint8_t> out) {
    DequeueResult result;
    while (!isEmpty(buffer) && !result.hasDelimiter) {
        std::span<const uint8_t> block = OldestBlock(buffer);
        const auto delimiter = static_cast<const uint8_t*>(memchr(block.data(), DELIMITER, block.size()));
        if (delimiter != nullptr) {
            block = {block.data(), delimiter + 1};
            result.hasDelimiter = true;
        }
        const size_t stored = std::min(block.size(), out.size());
        std::copy_n(block.begin(), stored, out.begin());
        out = out.subspan(stored);
        result.count += block.size();
        RemoveOldest(buffer, block.size());
    }
    return result;
}

// Removes one frame from the ring and stores the frame with its delimiters in `data` (FRAME_LENGTH_MAX bytes). Discards
// bytes before the opening delimiter. Returns 0; -3 if the ring contains no complete frame (an incomplete frame is
// discarded); -4 if the frame is too long (discarded up to its closing delimiter or the end of the ring).
int32_t GetOneCompleteDataPacket(SerialBuffer_t& buffer, uint8_t* data, size_t* data_len) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    const std::lock_guard<std::mutex> guard(buffer.m_mutex);
    const DequeueResult skipped = dequeue(buffer, {});
    g_skippedBytes.Add(skipped.count - (skipped.hasDelimiter ? 1 : 0));
    if (!skipped.hasDelimiter) {
        return ret = -3;
    }
    data[0] = DELIMITER;
    const DequeueResult body = dequeue(buffer, {data + 1, FRAME_LENGTH_MAX - 1});
    *data_len = 1 + body.count;
    const bool isTooLong = *data_len + (body.hasDelimiter ? 0 : 1) > FRAME_LENGTH_MAX;
    (body.hasDelimiter || isTooLong ? g_framedBytes : g_cutBytes).Add(*data_len);
    if (isTooLong) {
        ret = -4;
    } else if (!body.hasDelimiter) {
        ret = -3;
    }
    return ret;
}

v2xpub_address_t LastSender(SerialBuffer_t& buffer) {
    const std::lock_guard<std::mutex> guard(buffer.m_mutex);
    return buffer.m_sender;
}

// Decodes an escape sequence at the start of `bytes`. Returns the decoded byte; -1 if `bytes` starts with no escape
// sequence.
int32_t DecodeEscape(std::span<const uint8_t> bytes) {
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

// Unescapes `in` into pDataOut, which is at least as large as `in`. Returns the length of the result.
size_t ConvertDecodeData(std::span<const uint8_t> in, uint8_t* pDataOut) {
    const int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_1743Log, ret);
    size_t written = 0;
    for (size_t i = 0; i < in.size(); i++) {
        const int32_t unescaped = DecodeEscape(in.subspan(i));
        pDataOut[written++] = unescaped < 0 ? in[i] : static_cast<uint8_t>(unescaped);
        i += unescaped < 0 ? 0 : 1;
    }
    return written;
}

// Unescapes one frame of at least FRAME_LENGTH_MIN bytes, checks its CRC, and converts its payload. Returns 0 if the
// CRC is correct, even if the conversion fails; -3 for a wrong length; -4 if the CRC cannot be computed; -6 for a wrong
// CRC.
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
    DealSignalMachineDataTable(payload, LastSender(g_seria_buffer));
    return ret;
}

// Counts and processes one frame. Returns true if length and CRC of the frame are correct.
bool ProcessFrame(std::span<const uint8_t> frame, bool isTooLong) {
    g_frames.Add();
    if (isTooLong || frame.size() < FRAME_LENGTH_MIN) {
        (isTooLong ? g_tooLong : g_tooShort).Add();
        V2XLOG(g_1743Log, V2XLOG_WARN, "GetOneCompleteDataPacket error");
        return false;
    }
    return DealSignalMachineRecvData(frame) == 0;
}

// Processes all frames in the ring.
void ProcessFrames() {
    uint8_t frame[FRAME_LENGTH_MAX];
    size_t length = 0;
    int32_t result = 0;
    while ((result = GetOneCompleteDataPacket(g_seria_buffer, frame, &length)) != -3) {
        if (!ProcessFrame({frame, std::min(length, sizeof frame)}, result != 0)) {
            v2xspatconv_LinkLogSender(g_1743Link, g_1743Log, "the last datagram before the invalid frame",
                                      LastSender(g_seria_buffer));
        }
    }
}

} // namespace

void initBuffer(void) {
    const std::lock_guard<std::mutex> guard(g_seria_buffer.m_mutex);
    g_seria_buffer.m_front = -1;
    g_seria_buffer.m_rear = -1;
}

void v2xspatconv_GetSignalMachine1743DataRcv(V2X_UDPSOCKHANDLE /*handle*/, void* p_data, void* addr, int16_t addrLen) {
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
        g_seria_buffer.m_sender = v2xpub_ReadAddress(addr, addrLen);
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
