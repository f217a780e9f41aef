#include "stack_reply.h"

#include <algorithm>
#include <cstring>
#include <limits>
#include <utility>

#include "damage.h"
#include "v2x/v2xipc_data.h"
#include "v2xapp_upercodec.h"

namespace sim {
namespace {

using Bytes = std::vector<uint8_t>;
using Head = v2xipc_dataHead_t;
using Block = v2xipc_rsuData_t;

constexpr size_t HEADS_SIZE = sizeof(Head) + sizeof(Block);
constexpr size_t LENGTH_SIZE = 2; // the size of an item's length field

template <typename Record>
Record Get(std::span<const uint8_t> bytes, size_t at) {
    Record record{};
    std::memcpy(&record, bytes.data() + at, sizeof record);
    return record;
}

template <typename Record>
void Put(Bytes& bytes, size_t at, const Record& record) {
    std::memcpy(bytes.data() + at, &record, sizeof record);
}

// Sets the length fields of header and data block to match the datagram's size.
void UpdateLengths(Bytes& reply) {
    auto head = Get<Head>(reply, 0);
    auto block = Get<Block>(reply, sizeof(Head));
    head.m_packLen = static_cast<uint16_t>(reply.size() - sizeof head);
    block.m_dataLen = static_cast<uint16_t>(reply.size() - HEADS_SIZE);
    Put(reply, 0, head);
    Put(reply, sizeof head, block);
}

// ---- damage to the items of a reply

// Truncates an item, or selects an invalid alternative. A MessageFrame begins with the extension bit and three bits
// that select one of five alternatives.
void DamageToGarbage(std::vector<Item>& items, Chance& chance) {
    Item& item = items[chance.Below(items.size())];
    if (chance.Below(2) == 0) {
        item.resize(chance.Below(item.size()));
    } else {
        item.front() = static_cast<uint8_t>((5 + chance.Below(3)) << 4 | chance.Below(16));
    }
}

void DamageTrailing(std::vector<Item>& items, Chance& chance) {
    Item& item = items[chance.Below(items.size())];
    for (size_t left = 1 + chance.Below(8); left > 0; --left) {
        item.push_back(chance.Byte());
    }
}

// ---- damage to a good reply; `last` is the size of its last item

void DamageShort(Bytes& reply, size_t /*last*/, Chance& chance) {
    reply.resize(chance.Below(HEADS_SIZE));
}

void DamageHead(Bytes& reply, size_t /*last*/, Chance& chance) {
    chance.Change(reply[chance.Below(2)]);
}

// Changes the length by 1 to 64, up or down: a receiver is most likely to overlook a small error.
void DamageLength(Bytes& reply, size_t /*last*/, Chance& chance) {
    auto head = Get<Head>(reply, 0);
    const size_t off = 1 + chance.Below(64);
    head.m_packLen = static_cast<uint16_t>(chance.Below(2) == 0 ? head.m_packLen + off : head.m_packLen - off);
    Put(reply, 0, head);
}

void DamageLarge(Bytes& reply, size_t /*last*/, Chance& /*chance*/) {
    reply.resize(sizeof(Head) + MAX_REPLY_PAYLOAD + 1);
    UpdateLengths(reply);
}

void DamageCommand(Bytes& reply, size_t /*last*/, Chance& chance) {
    chance.Change(reply[offsetof(Head, m_cmdType) + chance.Below(2)]);
}

void DamageType(Bytes& reply, size_t /*last*/, Chance& chance) {
    chance.Change(reply[sizeof(Head) + offsetof(Block, m_dataType) + chance.Below(4)]);
}

void DamageNumber(Bytes& reply, size_t /*last*/, Chance& chance) {
    auto block = Get<Block>(reply, sizeof(Head));
    const bool isFarOff = chance.Below(4) == 0;
    block.m_dataNo = isFarOff ? std::numeric_limits<int32_t>::max()
                              : static_cast<int32_t>(block.m_dataNo + 1 + static_cast<int32_t>(chance.Below(8)));
    Put(reply, sizeof(Head), block);
}

// Raises the length of the last item, or truncates the reply within the last item. At least one byte of the item's
// length field remains.
void DamageCut(Bytes& reply, size_t last, Chance& chance) {
    if (chance.Below(2) == 0) {
        const auto more = static_cast<uint16_t>(std::min<size_t>(last + 1 + chance.Below(64), 65535));
        Put(reply, reply.size() - last - LENGTH_SIZE, more);
    } else {
        reply.resize(reply.size() - 1 - chance.Below(last + 1));
        UpdateLengths(reply);
    }
}

struct Damage {
    void (*damageItems)(std::vector<Item>& items, Chance& chance);
    void (*damageReply)(Bytes& reply, size_t last, Chance& chance);
};
constexpr Damage DAMAGES[] = {
    {nullptr, nullptr},        {nullptr, DamageHead},   {nullptr, DamageLength}, {nullptr, DamageLarge},
    {nullptr, DamageCommand},  {nullptr, DamageType},   {nullptr, DamageCut},    {DamageToGarbage, nullptr},
    {DamageTrailing, nullptr}, {nullptr, DamageNumber}, {nullptr, DamageShort},
};
static_assert(std::size(DAMAGES) == std::size(REPLY_KINDS));

// ---- reading

ReplyKind CheckHeads(std::span<const uint8_t> datagram) {
    if (datagram.size() < HEADS_SIZE) {
        return ReplyKind::tooShort;
    }
    const auto head = Get<Head>(datagram, 0);
    const size_t payload = datagram.size() - sizeof head;
    if (std::memcmp(head.m_headFlag, V2XIPC_HEAD_FLAG, sizeof head.m_headFlag) != 0) {
        return ReplyKind::wrongHead;
    }
    if (head.m_packLen != payload) {
        return ReplyKind::wrongLength;
    }
    if (payload > MAX_REPLY_PAYLOAD) {
        return ReplyKind::tooLarge;
    }
    if (head.m_cmdType != V2XIPC_CMD_FROM_STACK) {
        return ReplyKind::wrongCommand;
    }
    const bool hasItems = Get<Block>(datagram, sizeof head).m_dataType == V2XIPC_DATA_SPAT_UPER;
    return hasItems ? ReplyKind::good : ReplyKind::wrongType;
}

ReplyKind CheckFrame(std::span<const uint8_t> frame) {
    constexpr int32_t LEFT_OVER = -3;
    Item bytes(frame.begin(), frame.end());
    ASNSTRUCT_HANDLE message = nullptr;
    const int32_t result = v2xcodec_uperDec(&message, bytes.data(), static_cast<int16_t>(bytes.size()));
    if (result == 0) {
        v2xcodec_freeStrcut(&message);
        return ReplyKind::good;
    }
    return result == LEFT_OVER ? ReplyKind::trailing : ReplyKind::garbage;
}

// Checks the first item of `rest` and removes the item from `rest`.
ReplyKind TakeItem(std::span<const uint8_t>& rest) {
    if (rest.empty()) {
        return ReplyKind::wrongNumber;
    }
    if (rest.size() < LENGTH_SIZE) {
        return ReplyKind::cutItem;
    }
    const size_t size = Get<uint16_t>(rest, 0);
    rest = rest.subspan(LENGTH_SIZE);
    if (size > rest.size()) {
        return ReplyKind::cutItem;
    }
    const ReplyKind kind = CheckFrame(rest.first(size));
    rest = rest.subspan(size);
    return kind;
}

} // namespace

size_t MeasurePayload(std::span<const Item> items) {
    size_t size = sizeof(Block);
    for (const Item& item : items) {
        size += LENGTH_SIZE + item.size();
    }
    return size;
}

Bytes EncodeReply(std::span<const Item> items, uint64_t sendTime) {
    Head head{};
    std::memcpy(head.m_headFlag, V2XIPC_HEAD_FLAG, sizeof head.m_headFlag);
    head.m_inc = V2XIPC_INC;
    head.m_sendTime64 = sendTime;
    head.m_cmdType = V2XIPC_CMD_FROM_STACK;
    Block block{};
    block.m_dataType = V2XIPC_DATA_SPAT_UPER;
    block.m_dataNo = static_cast<int32_t>(items.size());
    Bytes reply(HEADS_SIZE);
    Put(reply, 0, head);
    Put(reply, sizeof head, block);
    for (const Item& item : items) {
        reply.push_back(static_cast<uint8_t>(item.size()));
        reply.push_back(static_cast<uint8_t>(item.size() >> 8));
        reply.insert(reply.end(), item.begin(), item.end());
    }
    UpdateLengths(reply);
    return reply;
}

Bytes EncodeBadReply(std::vector<Item> items, uint64_t sendTime, ReplyKind kind, uint32_t random) {
    const auto& [damageItems, damageReply] = DAMAGES[static_cast<size_t>(kind)];
    Chance chance(random);
    if (damageItems != nullptr) {
        damageItems(items, chance);
    }
    Bytes reply = EncodeReply(items, sendTime);
    if (damageReply != nullptr) {
        damageReply(reply, items.back().size(), chance);
    }
    return reply;
}

ReplyResult ReadReply(std::span<const uint8_t> datagram) {
    ReplyResult reading{CheckHeads(datagram), 0};
    if (reading.kind != ReplyKind::good) {
        return reading;
    }
    const int32_t claimed = Get<Block>(datagram, sizeof(Head)).m_dataNo;
    std::span<const uint8_t> rest = datagram.subspan(HEADS_SIZE);
    for (int32_t left = claimed; left > 0; --left) {
        reading.kind = TakeItem(rest);
        if (reading.kind != ReplyKind::good) {
            return reading;
        }
        ++reading.items;
    }
    return reading;
}

} // namespace sim
