// What the program does, apart from its command line.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "document_source.h"
#include "frame_source.h"

namespace msg {

// Takes a piece of output; throws when it cannot.
using Sink = std::function<void(std::string_view)>;

// A line of text each: what is wrong, and the count at the end.
struct Sinks {
    Sink output;
    Sink errors;
};

// Each goes through a whole input, reports what is bad and goes on, and returns whether there was anything and all of
// it good.
bool DecodeAll(const FrameSource& frames, const Sinks& sinks);
bool DescribeAll(const FrameSource& frames, const Sinks& sinks);
enum class FrameForm { hex, raw };
bool EncodeAll(Input& input, FrameForm form, const Sinks& sinks);

} // namespace msg
