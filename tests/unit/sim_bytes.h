// Bytes as the simulators' tests write them.
#pragma once

#include <cstdint>
#include <sstream>
#include <string>
#include <vector>

using Bytes = std::vector<uint8_t>;

inline Bytes Hex(const std::string& hex) {
    Bytes bytes;
    std::istringstream in(hex);
    for (unsigned byte = 0; in >> std::hex >> byte;) {
        bytes.push_back(static_cast<uint8_t>(byte));
    }
    return bytes;
}
