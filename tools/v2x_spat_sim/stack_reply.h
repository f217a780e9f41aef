// The stack application's reply to a request for SPAT, and what can be wrong with one.
//
// The head of a frame (command 21), the head of a data block (data type 11, the number of items), and the items, one
// directly after another: a length of two bytes and that many bytes of one encoded MessageFrame (UPER).
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>
#include <vector>

namespace sim {

using Item = std::vector<uint8_t>; // an encoded MessageFrame, or what stands for one

// How a datagram stands to a well-made reply.
enum class ReplyKind : size_t {
    good,
    tooShort,     // fewer bytes than the two heads
    wrongHead,    // does not begin with A5 5A
    wrongLength,  // the head's length is not what follows it
    tooLarge,     // more than MAX_REPLY_PAYLOAD bytes follow the head
    wrongCommand, // not 21
    wrongType,    // the block does not hold items
    wrongNumber,  // fewer items than their number says
    cutItem,      // an item reaches beyond the end
    garbage,      // an item that cannot be decoded
    trailing,     // an item with bytes behind its frame
};
inline constexpr size_t REPLY_KINDS = 11;

inline constexpr size_t MAX_REPLY_PAYLOAD = 20480; // bytes after the head that the daemon takes

// How many bytes follow the head of a reply with these items.
size_t ReplyPayload(std::span<const Item> items);

// A good reply; `sendTime` in microseconds since 1970. Items of at most 65535 bytes, MAX_REPLY_PAYLOAD in all.
std::vector<uint8_t> EncodeReply(std::span<const Item> items, uint64_t sendTime);

// A reply of `kind` with at least one item, every one a whole frame; `random` chooses among the many ways to be so.
// Bytes behind a frame can make a reply too large whose items fill it nearly.
std::vector<uint8_t> EncodeBadReply(std::vector<Item> items, uint64_t sendTime, ReplyKind kind, uint32_t random);

struct ReplyReading {
    ReplyKind kind; // the first thing that is wrong: the heads in the order of the kinds, then item by item
    size_t items;   // that can be decoded, from the first one on to the first that cannot
};

// Any thread. Reads nothing outside the datagram, whatever it holds.
ReplyReading ReadReply(std::span<const uint8_t> datagram);

} // namespace sim
