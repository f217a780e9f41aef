// Recognizes what an input contains by its first bytes, and advises a user who has confused inputs.
#pragma once

#include <string>

#include "common/files.h"

namespace msg {

enum class InputKind { empty, hex, xer, json, capture, gzip, utf16, binary, text };

// What a command reads.
enum class Wanted { frames, rawFrames, documents };

// Recognizes the input by its start, at most one block, which stays unread. Skips the byte order mark of UTF-8, unless
// raw frames are wanted. If frames are wanted and the first line is another kind of text, most lines decide.
InputKind RecognizeInput(tools::InputFile& input, Wanted wanted);

// Returns what the input looks like and what to do, or an empty text if the command can read this kind of input.
std::string Advise(InputKind kind, Wanted wanted);

} // namespace msg
