// GA/T 1743 frames for tests, put together here byte by byte and not by the daemon's code.
#pragma once

#include "bytes.h"

namespace frame_1743 {

struct Group {
    uint8_t type;
    uint8_t colour;
    uint8_t seconds;
};

struct Link {
    uint16_t angle;
    std::vector<Group> groups;
};

// CRC-16/MODBUS, bit by bit.
inline uint16_t crc(const Bytes& bytes) {
    uint16_t value = 0xFFFF;
    for (const uint8_t byte : bytes) {
        value = static_cast<uint16_t>(value ^ byte);
        for (int bit = 0; bit < 8; bit++) {
            value = static_cast<uint16_t>((value & 1) != 0 ? value >> 1 ^ 0xA001 : value >> 1);
        }
    }
    return value;
}

// A 31-byte header, light status by default.
inline Bytes header(uint8_t ctlType = 0x87, uint8_t objLow = 0x03, uint8_t objHigh = 0x01) {
    Bytes bytes(31, 0x11);
    bytes[24] = ctlType;
    bytes[25] = objLow;
    bytes[26] = objHigh;
    return bytes;
}

// Header and crossing record. The counts written can differ from what follows.
inline Bytes payload(const std::vector<Link>& links) {
    Bytes bytes = header();
    bytes.insert(bytes.end(), 12, 0x22);
    bytes.push_back(static_cast<uint8_t>(links.size()));
    for (const Link& link : links) {
        bytes.push_back(static_cast<uint8_t>(link.angle & 0xFF));
        bytes.push_back(static_cast<uint8_t>(link.angle >> 8));
        bytes.push_back(static_cast<uint8_t>(link.groups.size()));
        for (const Group& group : link.groups) {
            bytes.insert(bytes.end(), {9, group.type, group.colour, group.seconds});
        }
    }
    return bytes;
}

inline Bytes escaped(const Bytes& bytes) {
    Bytes result;
    for (const uint8_t byte : bytes) {
        if (byte == 0xC0 || byte == 0xDB) {
            result.push_back(0xDB);
            result.push_back(byte == 0xC0 ? 0xDC : 0xDD);
        } else {
            result.push_back(byte);
        }
    }
    return result;
}

// The payload on the wire. `crcChange` is added to the checksum.
inline Bytes frame(Bytes bytes, uint16_t crcChange = 0) {
    const uint16_t value = static_cast<uint16_t>(crc(bytes) + crcChange);
    bytes.push_back(static_cast<uint8_t>(value & 0xFF));
    bytes.push_back(static_cast<uint8_t>(value >> 8));
    Bytes result = {0xC0};
    const Bytes body = escaped(bytes);
    result.insert(result.end(), body.begin(), body.end());
    result.push_back(0xC0);
    return result;
}

inline Bytes operator+(Bytes left, const Bytes& right) {
    left.insert(left.end(), right.begin(), right.end());
    return left;
}

} // namespace frame_1743
