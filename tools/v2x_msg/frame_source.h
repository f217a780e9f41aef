// Splits an input into frames, one after another, and holds no more than one of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/files.h"

namespace msg {

struct Frame {
    std::string where; // input and line, for messages
    std::vector<uint8_t> bytes;
    std::string problem; // why `bytes` are invalid; empty when they are valid
};

// Delivers the next frame; false when there are no more. Throws as InputFile does. Its input must outlive it.
using FrameSource = std::function<bool(Frame&)>;

inline constexpr size_t MAX_FRAME = size_t{1} << 20;

// The whole text is one frame in hex.
FrameSource FrameOfArgument(const std::string& text);

// Each line is a frame in hex. '#' begins a comment; a line without digits is skipped.
FrameSource FramesOfLines(tools::InputFile& input);

// All lines together are one frame in hex; comments as above.
FrameSource FrameOfAllLines(tools::InputFile& input);

// The whole input is the bytes of one frame.
FrameSource FrameOfBytes(tools::InputFile& input);

} // namespace msg
