// The stack application's reply to a request for SPAT, and what can be wrong with one.
//
// Frame header (command 21), data block (data type 11, the number of items), and the items back to back: a length of
// two bytes and that many bytes of one encoded MessageFrame (UPER).
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

#include "summary.h"

namespace sim {

using Item = std::vector<uint8_t>; // an encoded MessageFrame; in a bad reply any bytes

enum class ReplyKind : size_t {
    good,
    wrongHead,    // does not begin with A5 5A
    wrongLength,  // the header's length is not the number of bytes after it
    tooLarge,     // more than MAX_REPLY_PAYLOAD bytes after the header
    wrongCommand, // not 21
    wrongType,    // not the data type of items
    cutItem,      // an item reaches beyond the end
    garbage,      // an item that cannot be decoded
    trailing,     // an item with bytes after its frame
    wrongNumber,  // fewer items than the block counts
    tooShort,     // shorter than header and data block
};
inline constexpr KindName REPLY_KINDS[] = {
    {nullptr, "repliesGood", "good"},
    {"head", "repliesHead", "wrong head"},
    {"length", "repliesLength", "wrong length"},
    {"large", "repliesLarge", "too large"},
    {"command", "repliesCommand", "wrong command"},
    {"type", "repliesType", "wrong type"},
    {"cut", "repliesCut", "cut item"},
    {"garbage", "repliesGarbage", "garbage"},
    {"trailing", "repliesTrailing", "trailing bytes"},
    {"number", "repliesNumber", "wrong number"},
    {"short", "repliesShort", "short"},
};

inline constexpr size_t MAX_REPLY_PAYLOAD = 20480; // bytes after the header that the daemon accepts

// How many bytes follow the header of a reply with these items.
size_t ReplyPayload(std::span<const Item> items);

// A good reply; `sendTime` in microseconds since 1970. Items of at most 65535 bytes, MAX_REPLY_PAYLOAD in all.
std::vector<uint8_t> EncodeReply(std::span<const Item> items, uint64_t sendTime);

// A reply of `kind` with at least one item, each a whole frame; `random` chooses among the many ways to damage it.
// Trailing bytes can make a reply too large when its items nearly fill it.
std::vector<uint8_t> EncodeBadReply(std::vector<Item> items, uint64_t sendTime, ReplyKind kind, uint32_t random);

struct ReplyReading {
    ReplyKind kind; // the first fault: header and data block, then item by item
    size_t items;   // decoded, up to the first that cannot be
};

// Any thread. Reads nothing outside the datagram, whatever it holds.
ReplyReading ReadReply(std::span<const uint8_t> datagram);

} // namespace sim
