// The type of every topic, v2x::ByteBuffer { sequence<octet> data; }, in plain CDR (RTPS 2.3, chapter 10): four bytes
// of encapsulation, the length of the sequence in 32 bits, the octets.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

inline constexpr char V2XDDS_TYPE_NAME[] = "v2x::ByteBuffer";
// Maximum octets of a sample that this library sends, and of one callback.
inline constexpr uint32_t V2XDDS_PIECE_MAX = 1024;
// Maximum octets of a payload to send, and of a sample that a reader accepts.
inline constexpr uint32_t V2XDDS_PAYLOAD_MAX = 1048576;
// Bytes in front of the octets.
inline constexpr uint32_t V2XDDS_CDR_HEAD = 8;

// Writes head and octets, little-endian, to `sample`, which has room for V2XDDS_CDR_HEAD + octets.size() bytes.
void v2xdds_Encode(std::span<const uint8_t> octets, uint8_t* sample);

// The octets inside an encoded sample; nullopt if it is not plain CDR or its length exceeds the sample. Bytes behind
// the octets are padding.
std::optional<std::span<const uint8_t>> v2xdds_Decode(std::span<const uint8_t> sample);
