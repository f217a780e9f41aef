// Encodes, damages and classifies replies of the stack application to requests for SPAT.
//
// A reply is a frame header (command 21), a data block (data type 11, number of items) and the items. An item is a
// length (2 bytes, little-endian) and an encoded MessageFrame (UPER) of this length.
#pragma once

#include <cstddef>
#include <cstdint>
#include <iterator>
#include <span>
#include <vector>

#include "summary.h"

namespace sim {

using Item = std::vector<uint8_t>; // an encoded MessageFrame, or any bytes in a bad reply

enum class ReplyKind : size_t {
    good,
    wrongHead,    // the reply does not begin with A5 5A
    wrongLength,  // the header's length differs from the number of bytes after the header
    tooLarge,     // more than MAX_REPLY_PAYLOAD bytes follow the header
    wrongCommand, // the command is not 21
    wrongType,    // the data type is not 11
    cutItem,      // an item extends beyond the end of the reply
    garbage,      // an item cannot be decoded
    trailing,     // an item has bytes after its MessageFrame
    wrongNumber,  // the reply has fewer items than the data block counts
    tooShort,     // the reply is shorter than header and data block
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

inline constexpr size_t MAX_REPLY_PAYLOAD = 20480; // bytes after the header; the daemon rejects longer replies

// Returns the number of bytes after the header of a reply with these items.
size_t MeasurePayload(std::span<const Item> items);

// Encodes a good reply. `sendTime` is in microseconds since 1970. An item has at most 65535 bytes; MeasurePayload of
// the items is at most MAX_REPLY_PAYLOAD.
std::vector<uint8_t> EncodeReply(std::span<const Item> items, uint64_t sendTime);

// Encodes a reply of `kind`. `items` contains at least one item; each item is a valid MessageFrame. `random` selects
// one of many possible changes. With `trailing`, the payload can exceed MAX_REPLY_PAYLOAD.
std::vector<uint8_t> EncodeBadReply(std::vector<Item> items, uint64_t sendTime, ReplyKind kind, uint32_t random);

struct ReplyResult {
    ReplyKind kind; // the first fault; the order of the checks is header, data block, items
    size_t items;   // the number of valid items before the first fault
};

// Parses any datagram, without a read past its end. Any thread.
ReplyResult ReadReply(std::span<const uint8_t> datagram);

} // namespace sim
