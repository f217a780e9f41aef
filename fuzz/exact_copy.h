// A copy in heap memory of the exact size, so that a sanitizer detects a read past its end.
#pragma once

#include <algorithm>
#include <cstddef>
#include <cstdint>
#include <memory>

inline std::unique_ptr<uint8_t[]> exactCopy(const uint8_t* data, size_t size) {
    std::unique_ptr<uint8_t[]> copy(new uint8_t[size]);
    std::copy_n(data, size, copy.get());
    return copy;
}
