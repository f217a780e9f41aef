// The subcommands of v2x_msg.
#pragma once

#include <string>
#include <vector>

#include "capture_source.h"
#include "codec.h"
#include "common/files.h"
#include "describe.h"
#include "inputs.h"

namespace msg {

// The functions below convert all frames or documents of the inputs. They report a bad frame or document on standard
// error and continue with the next. They return true if there is at least one frame or document and all are good.

// How a frame is shown.
enum class View {
    xer,
    json,
    table,   // type, size and the most important values
    summary, // only numbers of frames and bytes of all inputs
};

struct FrameOptions {
    FrameArguments arguments;
    bool isRaw = false;                    // the inputs contain the bytes of frames
    bool isOne = false;                    // all lines of an input are one frame in hex
    DatagramChoice datagrams;              // for captures
    std::vector<const MessageKind*> kinds; // shows only these types; empty: all
    View view = View::xer;
};
bool ShowFrames(const FrameOptions& options, tools::OutputFile& output);

struct EncodeOptions {
    std::vector<std::string> paths;
    bool isRaw = false; // writes the bytes of the frames, not hex
    Unknown unknown = Unknown::refuse;
};
// Writes the frame of each XER document or line of JSON. Without any frame an old output file stays as it is.
bool EncodeDocuments(const EncodeOptions& options, tools::OutputFile& output);

} // namespace msg
