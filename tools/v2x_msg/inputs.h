// Opens the inputs that a command line names.
#pragma once

#include <functional>
#include <string>
#include <vector>

#include "common/files.h"
#include "input_kind.h"
#include "report.h"

namespace msg {

// The arguments of a command that reads frames.
struct FrameArguments {
    std::vector<std::string> paths; // "-" is standard input
    std::string hex;                // one frame, instead of paths
};

// Finds out whether the words are files or the digits of one frame. A word that names an existing file is a file, even
// if it is hex. If no word does, words without '/' and '.' are digits. `areFiles` means that all words are files.
// Without words, the only path is `defaultPath`. Throws std::invalid_argument if the words are both files and digits.
FrameArguments SortWords(const std::vector<std::string>& words, const std::string& defaultPath, bool areFiles);

// Calls `read` with each input. Reports an input that cannot be opened or read or is of another kind, and continues
// with the next. Before a read must wait for data, flushes `output`. Passes OutputError on.
void ForEachInput(const std::vector<std::string>& paths, Wanted wanted, Report& report, tools::OutputFile& output,
                  const std::function<void(tools::InputFile& input, InputKind kind)>& read);

} // namespace msg
