#include <cstddef>

#include "v2x/v2xpub.h"

namespace {

// The CRC remainders of all byte values for one polynomial.
struct Table {
    bool isBuilt;
    uint16_t polynomial;
    uint16_t remainders[256];

    void Build(uint16_t wanted) {
        for (uint32_t byte = 0; byte < 256; byte++) {
            uint32_t remainder = byte;
            for (int bit = 0; bit < 8; bit++) {
                remainder = (remainder & 1) != 0 ? remainder >> 1 ^ wanted : remainder >> 1;
            }
            remainders[byte] = static_cast<uint16_t>(remainder);
        }
        polynomial = wanted;
        isBuilt = true;
    }
};

// Each thread builds its table again if the polynomial changes.
thread_local Table t_table;

} // namespace

int32_t v2xpub_Crc16(uint16_t initial, uint16_t polynomial, const uint8_t* data, uint32_t length, uint16_t* crc_out) {
    if ((data == nullptr && length > 0) || crc_out == nullptr) {
        return -2;
    }
    if (!t_table.isBuilt || t_table.polynomial != polynomial) {
        t_table.Build(polynomial);
    }
    uint32_t crc = initial;
    for (uint32_t i = 0; i < length; i++) {
        crc = crc >> 8 ^ t_table.remainders[(crc ^ data[i]) & 0xFF];
    }
    *crc_out = static_cast<uint16_t>(crc);
    return 0;
}
