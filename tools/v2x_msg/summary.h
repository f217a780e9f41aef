// Counts frames by type.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <string>

#include "describe.h"
#include "frame_source.h"

namespace msg {

class Summary {
public:
    // Counts a frame that has a message.
    void Add(const Frame& frame);

    // Formats the numbers of frames and bytes, the number of bad frames, and the times of the first and the last
    // packet.
    std::string Format(size_t bad) const;

private:
    struct Row {
        uint64_t frames = 0;
        uint64_t bytes = 0;
    };
    std::array<Row, MESSAGE_KINDS.size()> m_rows{};
    uint64_t m_newer = 0; // frames with parts of a newer edition
    uint64_t m_first = UINT64_MAX;
    uint64_t m_last = 0;
};

// Formats microseconds since 1970 as "2026-11-23T02:37:55.123456Z".
std::string FormatTime(uint64_t microseconds);

} // namespace msg
