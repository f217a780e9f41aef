#include "v2xdds_cdr.h"

#include <cstring>

namespace {

// Second byte of the encapsulation identifier (RTPS 2.3, 10.2). The first byte is 0.
constexpr uint8_t CDR_BIG_ENDIAN = 0;
constexpr uint8_t CDR_LITTLE_ENDIAN = 1;

uint32_t ReadUint32(const uint8_t* bytes, bool isLittleEndian) {
    uint32_t value = 0;
    for (int i = 0; i < 4; ++i) {
        value = value << 8 | bytes[isLittleEndian ? 3 - i : i];
    }
    return value;
}

} // namespace

void v2xdds_Encode(std::span<const uint8_t> octets, uint8_t* sample) {
    const size_t length = octets.size();
    const uint8_t head[V2XDDS_CDR_HEAD] = {0,
                                           CDR_LITTLE_ENDIAN,
                                           0,
                                           0,
                                           static_cast<uint8_t>(length),
                                           static_cast<uint8_t>(length >> 8),
                                           static_cast<uint8_t>(length >> 16),
                                           static_cast<uint8_t>(length >> 24)};
    std::memcpy(sample, head, sizeof head);
    if (length > 0) {
        std::memcpy(sample + sizeof head, octets.data(), length);
    }
}

std::optional<std::span<const uint8_t>> v2xdds_Decode(std::span<const uint8_t> sample) {
    if (sample.size() < V2XDDS_CDR_HEAD || sample[0] != 0 || sample[1] > CDR_LITTLE_ENDIAN) {
        return std::nullopt;
    }
    static_assert(CDR_BIG_ENDIAN == 0 && CDR_LITTLE_ENDIAN == 1);
    const uint32_t length = ReadUint32(&sample[4], sample[1] == CDR_LITTLE_ENDIAN);
    const auto rest = sample.subspan(V2XDDS_CDR_HEAD);
    if (length > rest.size()) {
        return std::nullopt;
    }
    return rest.first(length);
}
