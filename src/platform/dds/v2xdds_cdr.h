// The one type of all topics, v2x::ByteBuffer { sequence<octet> data; }, in plain CDR (RTPS 2.3, chapter 10): four
// bytes of encapsulation, the sequence's length as 32 bits, the octets.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

inline constexpr char V2XDDS_TYPE_NAME[] = "v2x::ByteBuffer";
// Octets of one sample that this library sends, and that a callback gets at most.
inline constexpr uint32_t V2XDDS_PIECE_MAX = 1024;
// Octets of one payload that is sent, and of one sample of a foreign peer that is taken.
inline constexpr uint32_t V2XDDS_PAYLOAD_MAX = 1048576;
// Bytes before the octets.
inline constexpr uint32_t V2XDDS_CDR_HEAD = 8;

// Writes head and octets to `sample`, which has room for V2XDDS_CDR_HEAD + octets.size(): little-endian.
void v2xdds_Encode(std::span<const uint8_t> octets, uint8_t* sample);

// The octets of an encoded sample, in place; none when it is no plain CDR of the type or its length runs past the end.
// Bytes behind the octets are padding.
std::optional<std::span<const uint8_t>> v2xdds_Decode(std::span<const uint8_t> sample);
