// Encodes and decodes the type of every topic, v2x::ByteBuffer { sequence<octet> data; }, in plain CDR (RTPS 2.3,
// chapter 10). A sample consists of a 4-byte encapsulation header, the 4-byte length of the sequence, and the octets.
#pragma once

#include <cstdint>
#include <optional>
#include <span>

inline constexpr char V2XDDS_TYPE_NAME[] = "v2x::ByteBuffer";
// Maximum number of octets in a sample that a writer sends, and in one call of a callback.
inline constexpr uint32_t V2XDDS_SAMPLE_MAX = 1024;
// Maximum number of octets in a payload to send, and in a sample that a reader accepts.
inline constexpr uint32_t V2XDDS_PAYLOAD_MAX = 1048576;
// Size of the encapsulation header and the length, in bytes.
inline constexpr uint32_t V2XDDS_CDR_HEAD = 8;

// Encodes `octets` as a little-endian sample. `sample` must have at least V2XDDS_CDR_HEAD + octets.size() bytes.
void v2xdds_Encode(std::span<const uint8_t> octets, uint8_t* sample);

// Returns the octets of an encoded sample as a part of `sample`. Ignores padding after the octets. Returns nullopt if
// the sample is not plain CDR or if the sequence is longer than the sample.
std::optional<std::span<const uint8_t>> v2xdds_Decode(std::span<const uint8_t> sample);
