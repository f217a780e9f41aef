#include "spat_conv_stack_interface_poll.h"

#include <algorithm>
#include <cstring>
#include <mutex>

#include "spat_conv_config.h"
#include "spat_conv_spatup.h"
#include "spat_conv_stack_interface.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xipc_data.h"
#include "v2x/v2xlog.h"
#include "v2xapp_upercodec.h"

namespace {

v2xlog_tag_t g_log{"SINF"};

// One of these two counters counts each request.
v2x_counter g_unanswered{"reply", "unanswered"};
v2x_counter g_received{"reply", "received"};
// One of these counters counts each received reply when the reply leaves the queue.
v2x_counter g_overrun{"reply", "overrun"};
v2x_counter g_wrongHead{"reply", "wrong_head"};
v2x_counter g_wrongLength{"reply", "wrong_length"};
v2x_counter g_wrongCommand{"reply", "wrong_command"};
v2x_counter g_otherType{"reply", "other_type"};
v2x_counter g_noBlock{"reply", "no_block"};
v2x_counter g_badItem{"reply", "bad_item"}; // the reply ends at an invalid item; earlier items are forwarded
v2x_counter g_accepted{"reply", "accepted"};
v2x_counter g_items{"reply", "items"};          // decoded items
v2x_counter g_itemsOver{"reply", "items_over"}; // items after the 64th, which are ignored

constexpr int32_t REQUEST_DATA_NO = 1;
constexpr int32_t REPLY_MAX_PACK = 20480;
constexpr int32_t REPLY_MAX_ITEMS = 64;
constexpr size_t PENDING_MAX = 64;
constexpr int16_t DATAGRAM_MAX = 32767; // largest value of m_curMsgLen

// One reply datagram.
struct spat_pc5_data_ {
    int16_t m_curMsgLen;
    uint8_t bytes[DATAGRAM_MAX];
};

// A ring of replies in order of arrival. g_first is the index of the oldest reply, g_pending the number of replies.
std::mutex g_spat_pc5_data_mutex;
spat_pc5_data_ g_spat_pc5_data[PENDING_MAX];
size_t g_first = 0;
size_t g_pending = 0;

void CopyReply(const spat_pc5_data_& from, spat_pc5_data_& to) {
    to.m_curMsgLen = from.m_curMsgLen;
    memcpy(to.bytes, from.bytes, static_cast<size_t>(from.m_curMsgLen));
}

// Queues a reply. If the queue is full, drops the oldest reply.
void QueueReply(const spat_pc5_data_& reply) {
    bool isFull = false;
    {
        const std::lock_guard<std::mutex> guard(g_spat_pc5_data_mutex);
        isFull = g_pending == PENDING_MAX;
        CopyReply(reply, g_spat_pc5_data[(g_first + g_pending) % PENDING_MAX]);
        g_first = (g_first + (isFull ? 1 : 0)) % PENDING_MAX;
        g_pending += isFull ? 0 : 1;
    }
    if (isFull) {
        g_overrun.Add();
        V2XLOG(g_log, V2XLOG_WARN, "%zu replies are queued, the oldest is dropped", PENDING_MAX);
    }
}

// Removes the oldest reply and copies it to `reply`. Only the processing task may call this function, and only if
// CountPending() > 0: QueueReply never shortens the queue.
void TakeOldest(spat_pc5_data_& reply) {
    const std::lock_guard<std::mutex> guard(g_spat_pc5_data_mutex);
    CopyReply(g_spat_pc5_data[g_first], reply);
    g_first = (g_first + 1) % PENDING_MAX;
    g_pending--;
}

size_t CountPending() {
    const std::lock_guard<std::mutex> guard(g_spat_pc5_data_mutex);
    return g_pending;
}

// Returns the corrections; all are off without a configuration.
corrections_t GetCorrections() {
    const spat_conv_config_t* config = nullptr;
    return v2xspatconv_GetCfgData(&config) == 0 ? config->m_corrections : corrections_t{};
}

// Decodes the item whose length field is at offset `at` and sends its SPAT to the cloud. Returns the offset of the end
// of the item; 0 if the item exceeds the block or cannot be decoded.
size_t DealItem(uint8_t* bytes, size_t size, size_t at) {
    v2xipc_pc5Data_t item = {};
    if (at + sizeof item <= size) {
        memcpy(&item, bytes + at, sizeof item);
    }
    const size_t end = at + sizeof item + item.m_uper_dataLen;
    ASNSTRUCT_HANDLE frame = nullptr;
    if (end > size ||
        v2xcodec_uperDec(&frame, bytes + at + sizeof item, static_cast<int16_t>(item.m_uper_dataLen)) != 0) {
        g_badItem.Add();
        V2XLOG(g_log, V2XLOG_ERROR, "v2xapp_GBRsiUperDecode error");
        v2xcodec_freeStrcut(&frame);
        return 0;
    }
    g_items.Add();
    v2xspatconv_SpatDataUp(&frame);
    return end;
}

// Decodes at most 64 items of a data block of `size` bytes. Stops at the first invalid item. Returns 0; -2 if the block
// is too short or an item is invalid.
int32_t DealSpatDataRecv(uint8_t* pRsuData, size_t size) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    v2xipc_rsuData_t block;
    if (size < sizeof block) {
        g_noBlock.Add();
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    memcpy(&block, pRsuData, sizeof block);
    uint8_t* const items = pRsuData + sizeof block;
    const bool areContiguous = GetCorrections().m_reply_items;
    size_t at = 0;
    for (int32_t i = 0; i < std::min(block.m_dataNo, REPLY_MAX_ITEMS); i++) {
        const size_t end = DealItem(items, size - sizeof block, at);
        if (end == 0) {
            return ret = -2;
        }
        // Corrected: each item starts at the end of the previous item. Legacy: the offset includes the data length of
        // the previous item, but of no earlier item.
        const size_t length = end - at - sizeof(v2xipc_pc5Data_t);
        at = areContiguous ? end : sizeof(v2xipc_pc5Data_t) * static_cast<size_t>(i + 1) + length;
    }
    g_accepted.Add();
    g_itemsOver.Add(static_cast<uint64_t>(std::max(block.m_dataNo, REPLY_MAX_ITEMS) - REPLY_MAX_ITEMS));
    return ret;
}

// Writes the request's data block (type 11, number 1, no data) to pData and the length of the block to *plen.
void GetSpatData_fill(uint8_t* pData, uint16_t* plen) {
    v2xipc_rsuData_t block = {};
    block.m_dataType = V2XIPC_DATA_SPAT_UPER;
    block.m_dataNo = REQUEST_DATA_NO;
    memcpy(pData, &block, sizeof block);
    *plen = sizeof block;
}

} // namespace

int32_t v2xspatconv_GetRsuDataResp(const v2xpub_UdpSocketDataHead_t* mp_data) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    const auto size = static_cast<size_t>(mp_data->m_curMsgLen);
    v2xipc_dataHead_t head = {};
    v2xipc_rsuData_t block = {};
    memcpy(&head, mp_data->mp_data, std::min(size, sizeof head));
    if (memcmp(head.m_headFlag, V2XIPC_HEAD_FLAG, sizeof head.m_headFlag) != 0) {
        g_wrongHead.Add();
        V2XLOG(g_log, V2XLOG_FATAL, "v2xspatconv_GetRsuDataResp headflag error");
        return ret = -3;
    }
    if (size != sizeof head + head.m_packLen || head.m_packLen > REPLY_MAX_PACK) {
        g_wrongLength.Add();
        V2XLOG(g_log, V2XLOG_FATAL, "v2xspatconv_GetRsuDataResp too large ; error");
        return ret = -4;
    }
    if (head.m_cmdType != V2XIPC_CMD_FROM_STACK) {
        g_wrongCommand.Add();
        V2XLOG(g_log, V2XLOG_WARN, "Recv cmdType error:%d", head.m_cmdType);
        return ret = -5;
    }
    uint8_t* const data = mp_data->mp_data + sizeof head;
    memcpy(&block, data, std::min<size_t>(head.m_packLen, sizeof block));
    if (block.m_dataType != V2XIPC_DATA_SPAT_UPER) {
        g_otherType.Add();
        V2XLOG(g_log, V2XLOG_WARN, "Recv m_dataType error:%d", block.m_dataType);
        return ret;
    }
    DealSpatDataRecv(data, head.m_packLen);
    return ret;
}

void SendGetSpatDataToAPPTaskFun(void* /*arg*/) {
    static spat_pc5_data_ answer; // only the request task accesses this buffer
    uint8_t frame[sizeof(v2xipc_dataHead_t) + sizeof(v2xipc_rsuData_t)];
    uint16_t blockLength = 0;
    GetSpatData_fill(frame + sizeof(v2xipc_dataHead_t), &blockLength);
    const v2xipc_dataHead_t head = v2xspatconv_MakeRequestHead(blockLength);
    memcpy(frame, &head, sizeof head);

    const v2xpub_UdpSocketDataHead_t request = {static_cast<int16_t>(sizeof frame), frame};
    v2xpub_UdpSocketDataHead_t received = {DATAGRAM_MAX, answer.bytes};
    if (v2xspatconv_AskStack(request, received) != 0) {
        g_unanswered.Add();
        V2XLOG(g_log, V2XLOG_WARN, "UDP send error:%d", -4);
        return;
    }
    answer.m_curMsgLen = received.m_curMsgLen;
    g_received.Add();
    QueueReply(answer);
}

void DealSpatDataRecvTaskFun(void* /*arg*/) {
    static spat_pc5_data_ reply; // only the processing task accesses this buffer
    const size_t waiting = CountPending();
    if (waiting == 0) {
        const int32_t level = GetCorrections().m_quiet_log ? V2XLOG_TRACE : V2XLOG_WARN;
        V2XLOG(g_log, level, "NO SPAT data");
    }
    for (size_t i = 0; i < waiting; i++) {
        TakeOldest(reply);
        const v2xpub_UdpSocketDataHead_t datagram = {reply.m_curMsgLen, reply.bytes};
        v2xspatconv_GetRsuDataResp(&datagram);
    }
}
