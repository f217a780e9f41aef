// The subcommands, without their command lines.
#pragma once

#include <cstddef>
#include <functional>
#include <string>
#include <string_view>

#include "document_source.h"
#include "frame_source.h"

namespace msg {

// Takes a piece of output; throws when that fails.
using Sink = std::function<void(std::string_view)>;

struct Sinks {
    Sink output;
    Sink errors; // takes whole lines
};

// Each converts a whole input. A bad frame or document is reported and the next one is converted. Returns whether there
// was one at all and none was bad.
bool DecodeAll(const FrameSource& frames, const Sinks& sinks);
bool DescribeAll(const FrameSource& frames, const Sinks& sinks);
enum class FrameForm { hex, raw };
bool EncodeAll(tools::InputFile& input, FrameForm form, const Sinks& sinks);

} // namespace msg
