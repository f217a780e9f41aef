// Reads frames from hex or from bytes. Stores only one frame at a time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <string>

#include "codec.h"
#include "common/files.h"

namespace msg {

struct Frame {
    std::string where;   // the input's name and the line, packet or byte, for messages
    uint64_t packet = 0; // number of the packet in a capture, from 1; 0 if the frame is from no capture
    uint64_t time = 0;   // of the packet, in microseconds since 1970
    size_t offset = 0;   // of the frame in an input of bytes
    size_t size = 0;     // of the frame in bytes
    Decoded decoded;     // its message is null if the input has no valid frame in this place
};

// Receives each frame.
using FrameVisitor = std::function<void(const Frame& frame)>;

inline constexpr size_t MAX_FRAME = size_t{1} << 20; // bytes

// The functions below throw std::runtime_error if reading fails.

// Reads one frame: the whole text in hex.
void ReadArgument(const std::string& text, const FrameVisitor& visit);

// Reads one frame from each line in hex. '#' begins a comment. Skips lines without digits.
void ReadLines(tools::InputFile& input, const FrameVisitor& visit);

// Reads one frame: all lines together in hex. '#' begins a comment.
void ReadAllLines(tools::InputFile& input, const FrameVisitor& visit);

// Reads the bytes of consecutive frames. Stops after an invalid frame: its size is unknown.
void ReadBytes(tools::InputFile& input, const FrameVisitor& visit);

} // namespace msg
