// The subcommands, without their command lines.
#pragma once

#include "common/files.h"
#include "frame_source.h"

namespace msg {

inline constexpr const char* PROGRAM = "v2x_msg";

// Each converts a whole input. A bad frame or document is reported on standard error and the next one is converted.
// Returns whether there was one at all and none was bad.
bool DecodeAll(const FrameSource& frames, tools::OutputFile& output);
bool DescribeAll(const FrameSource& frames, tools::OutputFile& output);
enum class FrameForm { hex, raw };
bool EncodeAll(tools::InputFile& input, FrameForm form, tools::OutputFile& output);

} // namespace msg
