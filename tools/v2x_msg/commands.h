// The subcommands of v2x_msg.
#pragma once

#include "common/files.h"
#include "frame_source.h"

namespace msg {

inline constexpr const char* PROGRAM = "v2x_msg";

// The functions below convert all frames or documents of the input. They report a bad frame or document on standard
// error and continue with the next. They return true if the input has at least one frame or document and all are good.

// Writes each frame's message as XER.
bool DecodeAll(const FrameSource& frames, tools::OutputFile& output);
// Writes type and size of each frame's message, and the table of a SPAT.
bool DescribeAll(const FrameSource& frames, tools::OutputFile& output);
enum class FrameForm { hex, raw };
// Writes the frame of each XER document in the given form.
bool EncodeAll(tools::InputFile& input, FrameForm form, tools::OutputFile& output);

} // namespace msg
