// Bytes in tests, written as hexadecimal digits.
#pragma once

#include <cctype>
#include <cstdint>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

// White space is passed over.
inline Bytes hex(const std::string& digits) {
    Bytes bytes;
    std::string pair;
    for (const char digit : digits) {
        if (isspace(static_cast<unsigned char>(digit)) != 0) {
            continue;
        }
        pair += digit;
        if (pair.size() == 2) {
            bytes.push_back(static_cast<uint8_t>(std::stoi(pair, nullptr, 16)));
            pair.clear();
        }
    }
    return bytes;
}

// Bytes that show a cut, a mix-up or a stale byte.
inline Bytes pattern(size_t size, uint8_t seed) {
    Bytes bytes(size);
    for (size_t i = 0; i < size; i++) {
        bytes[i] = static_cast<uint8_t>(seed + i * 7 + i / 251);
    }
    return bytes;
}
