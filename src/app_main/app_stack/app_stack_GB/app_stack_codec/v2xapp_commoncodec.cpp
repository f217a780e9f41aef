#include "v2xapp_commoncodec.h"

#include <algorithm>

#include "v2xapp_private.h"

int32_t v2xcodec_bitString2Long(BITSTRING_HANDLE p_bitstring, int64_t* longData) {
    if (longData == nullptr) {
        return 0;
    }
    *longData = 0;
    if (p_bitstring == nullptr || p_bitstring->buf == nullptr) {
        return 0;
    }
    for (int32_t i = 0; i < p_bitstring->size; i++) {
        const uint32_t octet = p_bitstring->buf[p_bitstring->size - 1 - i];
        *longData += static_cast<int32_t>(octet << (8 * (i % 4)));
    }
    return 0;
}

int32_t v2xcodec_long2BitString(int64_t* longData, int8_t avail_bit, BITSTRING_HANDLE p_bitstring) {
    constexpr int32_t LONG_OCTETS = sizeof *longData;
    if (longData == nullptr || p_bitstring == nullptr) {
        return 0;
    }
    const int32_t bits = std::max<int32_t>(avail_bit, 0);
    const int32_t size = (bits + 7) / 8;
    auto* octets = v2xapp_New<uint8_t>(static_cast<size_t>(std::max(size, 1)));
    const auto value = static_cast<uint64_t>(*longData);
    for (int32_t i = 0; i < size && i < LONG_OCTETS; i++) {
        octets[size - 1 - i] = static_cast<uint8_t>(value >> (8 * i));
    }
    p_bitstring->buf = octets;
    p_bitstring->size = size;
    p_bitstring->bits_unused = 8 * size - bits;
    return 0;
}
