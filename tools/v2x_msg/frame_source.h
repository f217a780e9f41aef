// The frames of an input, one after another, without holding more than one of them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "input.h"

namespace msg {

struct Frame {
    std::string where; // input and line, for messages
    std::vector<uint8_t> bytes;
    std::string problem; // why `bytes` are not to be used; empty when they are
};

// Hands out the next frame; false when there are no more. Throws as Input does. What it reads from outlives it.
using FrameSource = std::function<bool(Frame&)>;

inline constexpr size_t MAX_FRAME = size_t{1} << 20;

// The whole text is one frame in hex.
FrameSource FrameOfArgument(const std::string& text);

// Each line is a frame in hex. '#' begins a comment; a line with nothing else is passed over.
FrameSource FramesOfLines(Input& input);

// All lines together are one frame in hex; comments as above.
FrameSource FrameOfAllLines(Input& input);

// The whole input is the bytes of one frame.
FrameSource FrameOfBytes(Input& input);

} // namespace msg
