#include "frame_source.h"

#include <string_view>

#include "common/hex.h"

namespace msg {
namespace {

constexpr const char* TOO_LONG = "longer than 1048576 bytes, the most that a frame may have";
static_assert(MAX_FRAME == 1048576);

void AppendDigits(std::string_view digits, Frame& frame) {
    frame.problem = tools::AppendHex(digits, frame.bytes);
    if (frame.problem.empty() && frame.bytes.empty()) {
        frame.problem = "no digits";
    } else if (frame.problem.empty() && frame.bytes.size() > MAX_FRAME) {
        frame.problem = TOO_LONG;
    }
}

// Appends the bytes of the line to the frame. Returns false if the line has only white space or a comment.
bool AppendLine(const std::string& line, Frame& frame) {
    const std::string_view digits = std::string_view(line).substr(0, line.find('#'));
    if (line.size() > tools::InputFile::MAX_LINE) {
        frame.problem = "a line longer than " + std::to_string(tools::InputFile::MAX_LINE) + " characters";
    } else if (digits.find_first_not_of(" \t\r\v\f") == std::string_view::npos) {
        return false;
    } else {
        AppendDigits(digits, frame);
    }
    return true;
}

// Makes a source of one frame, which `read` fills. The source has no frame if `read` returns false.
template <typename Read>
FrameSource MakeSingleSource(const std::string& where, Read read) {
    return [where, read, isDone = false](Frame& frame) mutable {
        if (isDone) {
            return false;
        }
        isDone = true;
        frame = {where, {}, {}};
        return read(frame);
    };
}

} // namespace

FrameSource FromArgument(const std::string& text) {
    return MakeSingleSource("argument", [text](Frame& frame) {
        AppendDigits(text, frame);
        return true;
    });
}

FrameSource FromLines(tools::InputFile& input) {
    return [&input, number = size_t{0}, line = std::string()](Frame& frame) mutable {
        while (input.ReadLine(line)) {
            frame = {input.Name() + ":" + std::to_string(++number), {}, {}};
            if (AppendLine(line, frame)) {
                return true;
            }
        }
        return false;
    };
}

FrameSource FromAllLines(tools::InputFile& input) {
    return MakeSingleSource(input.Name(), [&input](Frame& frame) {
        bool hasFrame = false;
        size_t number = 0;
        for (std::string line; frame.problem.empty() && input.ReadLine(line); ++number) {
            hasFrame = AppendLine(line, frame) || hasFrame;
        }
        if (!frame.problem.empty()) {
            frame.where += ":" + std::to_string(number);
        }
        return hasFrame;
    });
}

FrameSource FromBytes(tools::InputFile& input) {
    return MakeSingleSource(input.Name(), [&input](Frame& frame) {
        std::string_view block = input.ReadBlock();
        for (; !block.empty() && frame.bytes.size() <= MAX_FRAME; block = input.ReadBlock()) {
            frame.bytes.insert(frame.bytes.end(), block.begin(), block.end());
        }
        if (frame.bytes.size() > MAX_FRAME) {
            frame.problem = TOO_LONG;
        }
        return !frame.bytes.empty();
    });
}

} // namespace msg
