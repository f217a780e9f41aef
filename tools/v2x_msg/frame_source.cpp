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

// Appends the bytes of the line. Returns false when it holds white space or a comment only.
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

// Delivers the frame that `read` fills, unless it returns false.
template <typename Read>
FrameSource OneFrame(const std::string& where, Read read) {
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

FrameSource FrameOfArgument(const std::string& text) {
    return OneFrame("argument", [text](Frame& frame) {
        AppendDigits(text, frame);
        return true;
    });
}

FrameSource FramesOfLines(tools::InputFile& input) {
    return [&input, number = size_t{0}, line = std::string()](Frame& frame) mutable {
        while (input.Line(line)) {
            frame = {input.Name() + ":" + std::to_string(++number), {}, {}};
            if (AppendLine(line, frame)) {
                return true;
            }
        }
        return false;
    };
}

FrameSource FrameOfAllLines(tools::InputFile& input) {
    return OneFrame(input.Name(), [&input](Frame& frame) {
        bool isAny = false;
        size_t number = 0;
        for (std::string line; frame.problem.empty() && input.Line(line); ++number) {
            isAny = AppendLine(line, frame) || isAny;
        }
        if (!frame.problem.empty()) {
            frame.where += ":" + std::to_string(number);
        }
        return isAny;
    });
}

FrameSource FrameOfBytes(tools::InputFile& input) {
    return OneFrame(input.Name(), [&input](Frame& frame) {
        std::string_view piece = input.Piece();
        for (; !piece.empty() && frame.bytes.size() <= MAX_FRAME; piece = input.Piece()) {
            frame.bytes.insert(frame.bytes.end(), piece.begin(), piece.end());
        }
        if (frame.bytes.size() > MAX_FRAME) {
            frame.problem = TOO_LONG;
        }
        return !frame.bytes.empty();
    });
}

} // namespace msg
