// Splits an input into frames. Stores only one frame at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "common/files.h"

namespace msg {

struct Frame {
    std::string where; // the input's name and the line, for messages
    std::vector<uint8_t> bytes;
    std::string problem; // why the frame is invalid; empty if the frame is valid
};

// Reads the next frame. Returns false at the end of the input. Throws std::runtime_error if reading fails. The input
// must outlive the source.
using FrameSource = std::function<bool(Frame&)>;

inline constexpr size_t MAX_FRAME = size_t{1} << 20; // bytes

// Makes a source of one frame: the whole text in hex.
FrameSource FromArgument(const std::string& text);

// Makes a source of one frame for each line in hex. '#' begins a comment. The source skips lines without digits.
FrameSource FromLines(tools::InputFile& input);

// Makes a source of one frame: all lines together in hex. '#' begins a comment.
FrameSource FromAllLines(tools::InputFile& input);

// Makes a source of one frame: the bytes of the input.
FrameSource FromBytes(tools::InputFile& input);

} // namespace msg
