// Payloads as lines of text.
#pragma once

#include <cinttypes>
#include <cstdio>
#include <string>
#include <vector>

#include "bytes.h"

// "LENGTH HASH" (FNV-1a, 64 bits)
inline std::string describe(const void* data, size_t length) {
    uint64_t hash = 14695981039346656037U;
    for (size_t i = 0; i < length; i++) {
        hash = (hash ^ static_cast<const uint8_t*>(data)[i]) * 1099511628211U;
    }
    char text[64];
    snprintf(text, sizeof text, "%zu %016" PRIx64, length, hash);
    return text;
}

// Appends the pieces that a payload arrives in.
inline void addPieces(std::vector<std::string>& pieces, const Bytes& bytes) {
    for (size_t at = 0; at < bytes.size(); at += 1024) {
        pieces.push_back(describe(&bytes[at], bytes.size() - at < 1024 ? bytes.size() - at : 1024));
    }
}
