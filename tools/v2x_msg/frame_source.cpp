#include "frame_source.h"

#include <string_view>

#include "hex.h"

namespace msg {
namespace {

void Clear(Frame& frame, const std::string& where) {
    frame.where = where;
    frame.bytes.clear();
    frame.problem.clear();
}

void CheckSize(Frame& frame) {
    if (frame.problem.empty() && frame.bytes.size() > MAX_FRAME) {
        frame.problem = "longer than " + std::to_string(MAX_FRAME) + " bytes, which no frame is";
    }
}

// Appends what the line holds. Returns false when it holds nothing but a comment.
bool AppendLine(const std::string& line, Frame& frame) {
    if (line.size() > Input::MAX_LINE) {
        frame.problem = "a line longer than " + std::to_string(Input::MAX_LINE) + " characters";
        return true;
    }
    const std::string_view digits = std::string_view(line).substr(0, line.find('#'));
    if (digits.find_first_not_of(" \t\r\v\f") == std::string_view::npos) {
        return false;
    }
    frame.problem = AppendHex(digits, frame.bytes);
    if (frame.problem.empty() && frame.bytes.empty()) {
        frame.problem = "no digits";
    }
    CheckSize(frame);
    return true;
}

} // namespace

FrameSource FrameOfArgument(const std::string& text) {
    return [text, isDone = false](Frame& frame) mutable {
        if (isDone) {
            return false;
        }
        isDone = true;
        Clear(frame, "argument");
        frame.problem = AppendHex(text, frame.bytes);
        if (frame.problem.empty() && frame.bytes.empty()) {
            frame.problem = "no digits";
        }
        CheckSize(frame);
        return true;
    };
}

FrameSource FramesOfLines(Input& input) {
    return [&input, number = size_t{0}, line = std::string()](Frame& frame) mutable {
        while (input.Line(line)) {
            ++number;
            Clear(frame, input.Name() + ":" + std::to_string(number));
            if (AppendLine(line, frame)) {
                return true;
            }
        }
        return false;
    };
}

FrameSource FrameOfAllLines(Input& input) {
    return [&input, isDone = false](Frame& frame) mutable {
        if (isDone) {
            return false;
        }
        isDone = true;
        Clear(frame, input.Name());
        size_t number = 0;
        bool isAny = false;
        for (std::string line; frame.problem.empty() && input.Line(line);) {
            ++number;
            isAny = AppendLine(line, frame) || isAny;
        }
        if (!frame.problem.empty()) {
            frame.where += ":" + std::to_string(number);
        }
        return isAny;
    };
}

FrameSource FrameOfBytes(Input& input) {
    return [&input, isDone = false](Frame& frame) mutable {
        if (isDone) {
            return false;
        }
        isDone = true;
        Clear(frame, input.Name());
        for (int byte = input.Get(); byte != Input::END && frame.bytes.size() <= MAX_FRAME; byte = input.Get()) {
            frame.bytes.push_back(static_cast<uint8_t>(byte));
        }
        CheckSize(frame);
        return !frame.bytes.empty();
    };
}

} // namespace msg
