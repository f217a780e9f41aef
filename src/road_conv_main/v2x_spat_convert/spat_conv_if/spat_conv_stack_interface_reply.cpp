// SPAT that the stack application holds: asked for, queued, checked, decoded and sent up to the cloud.
#include <cstring>
#include <memory>
#include <mutex>
#include <new>
#include <utility>

#include "spat_conv_config.h"
#include "spat_conv_spatup.h"
#include "spat_conv_stack_interface.h"
#include "spat_conv_stack_interface_socket.h"
#include "v2x/v2xcount.h"
#include "v2x/v2xlog.h"
#include "v2xapp_upercodec.h"

namespace {

v2xlog_tag_t g_log{"SINF"};

// Every request is one of these, ...
v2x_counter g_unanswered{"reply", "unanswered"};
v2x_counter g_noMemory{"reply", "no_memory"};
v2x_counter g_received{"reply", "received"};
// ... every reply received one of these, or waits, ...
v2x_counter g_overrun{"reply", "overrun"};
v2x_counter g_wrongHead{"reply", "wrong_head"};
v2x_counter g_wrongLength{"reply", "wrong_length"};
v2x_counter g_wrongCommand{"reply", "wrong_command"};
v2x_counter g_otherType{"reply", "other_type"};
v2x_counter g_noBlock{"reply", "no_block"};
v2x_counter g_badItem{"reply", "bad_item"}; // the items in front of it are taken
v2x_counter g_accepted{"reply", "accepted"};
// ... and every item that is taken or not looked at one of these.
v2x_counter g_items{"reply", "items"};
v2x_counter g_itemsOver{"reply", "items_over"};

constexpr int32_t REQUEST_DATA_NO = 1;
constexpr int32_t REPLY_MAX_PACK = 20480;
constexpr int32_t REPLY_MAX_ITEMS = 64;
constexpr size_t PENDING_MAX = 64;
constexpr int16_t DATAGRAM_MAX = 32767; // what m_curMsgLen can tell

// One reply that waits.
struct spat_pc5_data_ {
    v2xpub_UdpSocketDataHead_t m_spat_data;
    std::unique_ptr<uint8_t[]> bytes; // what mp_data points to
    spat_pc5_data_* next;
};
using Reply = std::unique_ptr<spat_pc5_data_>;

// Replies in the order of their arrival. A plain pointer: tasks may run on while the process exits, and must not meet a
// destructor.
std::mutex g_spat_pc5_data_mutex;
spat_pc5_data_* g_spat_pc5_data = nullptr;
size_t g_pending = 0;

// The reply that waits longest; null when none does.
Reply TakeFirst() {
    const std::lock_guard<std::mutex> guard(g_spat_pc5_data_mutex);
    Reply first(g_spat_pc5_data);
    if (first != nullptr) {
        g_spat_pc5_data = first->next;
        g_pending--;
    }
    return first;
}

void Append(Reply node) {
    Reply dropped;
    {
        const std::lock_guard<std::mutex> guard(g_spat_pc5_data_mutex);
        if (g_pending == PENDING_MAX) {
            dropped.reset(std::exchange(g_spat_pc5_data, g_spat_pc5_data->next));
            g_pending--;
        }
        spat_pc5_data_** tail = &g_spat_pc5_data;
        while (*tail != nullptr) {
            tail = &(*tail)->next;
        }
        *tail = node.release();
        g_pending++;
    }
    if (dropped != nullptr) {
        g_overrun.Add();
        V2XLOG(g_log, V2XLOG_WARN, "%zu replies wait, the oldest is dropped", PENDING_MAX);
    }
}

size_t Pending() {
    const std::lock_guard<std::mutex> guard(g_spat_pc5_data_mutex);
    return g_pending;
}

Reply NewNode(const v2xpub_UdpSocketDataHead_t& reply) {
    Reply node(new (std::nothrow) spat_pc5_data_{});
    const size_t size = reply.m_curMsgLen > 0 ? static_cast<size_t>(reply.m_curMsgLen) : 0;
    if (node != nullptr) {
        node->bytes.reset(new (std::nothrow) uint8_t[size]);
    }
    if (node == nullptr || node->bytes == nullptr) {
        g_noMemory.Add();
        V2XLOG(g_log, V2XLOG_ERROR, "malloc error");
        return nullptr;
    }
    memcpy(node->bytes.get(), reply.mp_data, size);
    node->m_spat_data = {static_cast<int16_t>(size), node->bytes.get()};
    return node;
}

// Whether an item starts where the one before it ends, or where the settled rule of the interface says.
bool ItemsFollowEachOther() {
    const spat_conv_config_t* config = nullptr;
    return v2xspatconv_GetCfgData(&config) == 0 && config->m_corrections.m_reply_items;
}

// Decodes the item whose length stands at `at` and hands it on. Returns where its bytes end; 0 when it does not decode.
size_t DealItem(uint8_t* bytes, size_t size, size_t at) {
    v2xipc_pc5Data_t item = {};
    if (at + sizeof item <= size) {
        memcpy(&item, bytes + at, sizeof item);
    }
    const size_t end = at + sizeof item + item.m_uper_dataLen;
    ASNSTRUCT_HANDLE frame = nullptr;
    if (end > size ||
        v2xcodec_uperDec(&frame, bytes + at + sizeof item, static_cast<int16_t>(item.m_uper_dataLen)) != 0) {
        v2xcodec_freeStrcut(&frame);
        return 0;
    }
    g_items.Add();
    v2xspatconv_SpatDataUp(&frame);
    return end;
}

} // namespace

int32_t GetSpatData_fill(uint8_t* pData, uint16_t* plen) {
    if (pData == nullptr || plen == nullptr) {
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return -2;
    }
    v2xipc_rsuData_t block = {};
    block.m_dataType = V2XIPC_DATA_SPAT_UPER;
    block.m_dataNo = REQUEST_DATA_NO;
    memcpy(pData, &block, sizeof block);
    *plen = sizeof block;
    return 0;
}

void SendGetSpatDataToAPPTaskFun(void* /*arg*/) {
    static uint8_t buffer[DATAGRAM_MAX]; // of the request task alone
    uint8_t frame[sizeof(v2xipc_dataHead_t) + sizeof(v2xipc_rsuData_t)];
    v2xipc_dataHead_t head = {};
    uint16_t blockLength = 0;
    GetSpatData_fill(frame + sizeof head, &blockLength);
    memcpy(head.m_headFlag, V2XIPC_HEAD_FLAG, sizeof head.m_headFlag);
    head.m_inc = V2XIPC_INC;
    head.m_cmdType = V2XIPC_CMD_TO_STACK;
    head.m_packLen = blockLength;
    memcpy(frame, &head, sizeof head);

    const v2xpub_UdpSocketDataHead_t request = {static_cast<int16_t>(sizeof frame), frame};
    v2xpub_UdpSocketDataHead_t reply = {DATAGRAM_MAX, buffer};
    if (v2xspatconv_AskStack(request, reply) != 0) {
        g_unanswered.Add();
        V2XLOG(g_log, V2XLOG_WARN, "UDP send error:%d", -4);
        return;
    }
    Reply node = NewNode(reply);
    if (node != nullptr) {
        g_received.Add();
        Append(std::move(node));
    }
}

void DealSpatDataRecvTaskFun(void* /*arg*/) {
    const size_t waiting = Pending();
    if (waiting == 0) {
        V2XLOG(g_log, V2XLOG_WARN, "NO SPAT data");
    }
    for (size_t i = 0; i < waiting; i++) {
        const Reply node = TakeFirst();
        if (node != nullptr) {
            v2xspatconv_GetRsuDataResp(&node->m_spat_data);
        }
    }
}

int32_t v2xspatconv_GetRsuDataResp(const v2xpub_UdpSocketDataHead_t* mp_data) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    if (mp_data == nullptr || mp_data->mp_data == nullptr || mp_data->m_curMsgLen < 0) {
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    const auto size = static_cast<size_t>(mp_data->m_curMsgLen);
    v2xipc_dataHead_t head = {};
    v2xipc_rsuData_t block = {};
    memcpy(&head, mp_data->mp_data, size < sizeof head ? size : sizeof head);
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
    memcpy(&block, data, head.m_packLen < sizeof block ? head.m_packLen : sizeof block);
    if (block.m_dataType != V2XIPC_DATA_SPAT_UPER) {
        g_otherType.Add();
        V2XLOG(g_log, V2XLOG_WARN, "Recv m_dataType error:%d", block.m_dataType);
        return ret;
    }
    DealSpatDataRecv(data, head.m_packLen);
    return ret;
}

int32_t DealSpatDataRecv(uint8_t* pRsuData, size_t size) {
    int32_t ret = 0;
    V2XLOG_TRACE_SCOPE(g_log, ret);
    v2xipc_rsuData_t block;
    if (pRsuData == nullptr || size < sizeof block) {
        g_noBlock.Add();
        V2XLOG(g_log, V2XLOG_ERROR, "input param error");
        return ret = -2;
    }
    memcpy(&block, pRsuData, sizeof block);
    uint8_t* const items = pRsuData + sizeof block;
    const bool following = ItemsFollowEachOther();
    size_t at = 0;
    for (int32_t i = 0; i < block.m_dataNo && i < REPLY_MAX_ITEMS; i++) {
        const size_t end = DealItem(items, size - sizeof block, at);
        if (end == 0) {
            g_badItem.Add();
            V2XLOG(g_log, V2XLOG_ERROR, "v2xapp_GBRsiUperDecode error");
            return ret = -2;
        }
        // Settled: an item's place counts the length of the item before it alone.
        const size_t length = end - at - sizeof(v2xipc_pc5Data_t);
        at = following ? end : sizeof(v2xipc_pc5Data_t) * static_cast<size_t>(i + 1) + length;
    }
    g_accepted.Add();
    if (block.m_dataNo > REPLY_MAX_ITEMS) {
        g_itemsOver.Add(static_cast<uint64_t>(block.m_dataNo - REPLY_MAX_ITEMS));
    }
    return ret;
}
