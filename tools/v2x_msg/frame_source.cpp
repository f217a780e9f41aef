#include "frame_source.h"

#include <span>
#include <string_view>
#include <vector>

#include "common/hex.h"

namespace msg {
namespace {

constexpr const char* TOO_LONG = "longer than 1048576 bytes, the most that a frame may have";
static_assert(MAX_FRAME == 1048576);

// The bytes of a frame in hex.
struct Digits {
    std::vector<uint8_t> bytes;
    std::string problem; // why the text is invalid; empty if it is valid

    void Append(std::string_view text) {
        problem = tools::AppendHex(text, bytes);
        if (problem.empty() && bytes.empty()) {
            problem = "no digits";
        } else if (problem.empty() && bytes.size() > MAX_FRAME) {
            problem = TOO_LONG;
        }
    }

    // Returns false if the line has only white space or a comment.
    bool AppendLine(const std::string& line) {
        const std::string_view text = std::string_view(line).substr(0, line.find('#'));
        if (line.size() > tools::InputFile::MAX_LINE) {
            problem = "a line longer than " + std::to_string(tools::InputFile::MAX_LINE) + " characters";
        } else if (text.find_first_not_of(" \t\r\v\f") == std::string_view::npos) {
            return false;
        } else {
            Append(text);
        }
        return true;
    }

    void Visit(std::string where, const FrameVisitor& visit) const {
        Frame frame;
        frame.where = std::move(where);
        frame.size = bytes.size();
        frame.decoded = problem.empty() ? DecodeFrame(bytes) : MakeInvalid(problem);
        visit(frame);
    }
};

// The bytes of an input from the current frame on.
class ByteWindow {
public:
    explicit ByteWindow(tools::InputFile& input) : m_input(input) {}

    std::span<const uint8_t> Bytes() const { return std::span(m_bytes).subspan(m_begin); }

    // Returns false at the end of the input.
    bool ReadMore() {
        m_bytes.erase(m_bytes.begin(), m_bytes.begin() + static_cast<ptrdiff_t>(m_begin));
        m_begin = 0;
        const std::string_view block = m_input.ReadBlock();
        m_bytes.insert(m_bytes.end(), block.begin(), block.end());
        return !block.empty();
    }
    void Discard(size_t size) { m_begin += size; }

private:
    tools::InputFile& m_input;
    std::vector<uint8_t> m_bytes;
    size_t m_begin = 0; // of the current frame in m_bytes
};

// Decodes the frame at the start of the window and sets `size` to its size; reads as many bytes as the frame needs.
Decoded DecodeNext(ByteWindow& window, size_t& size) {
    for (;;) {
        Decoded decoded = DecodeFirst(window.Bytes(), size);
        const bool isTooShort = decoded.message == nullptr && decoded.problems.front().offset == window.Bytes().size();
        if (!isTooShort) {
            return decoded;
        }
        if (window.Bytes().size() > MAX_FRAME) {
            return MakeInvalid(TOO_LONG);
        }
        if (!window.ReadMore()) {
            return decoded;
        }
    }
}

} // namespace

void ReadArgument(const std::string& text, const FrameVisitor& visit) {
    Digits digits;
    digits.Append(text);
    if (!digits.problem.empty()) {
        digits.problem += "; there is no file with this name either";
    }
    digits.Visit("argument", visit);
}

void ReadLines(tools::InputFile& input, const FrameVisitor& visit) {
    Digits digits;
    std::string line;
    for (size_t number = 1; input.ReadLine(line); ++number) {
        digits.bytes.clear();
        if (digits.AppendLine(line)) {
            digits.Visit(input.Name() + ":" + std::to_string(number), visit);
        }
    }
}

void ReadAllLines(tools::InputFile& input, const FrameVisitor& visit) {
    Digits digits;
    bool hasFrame = false;
    size_t number = 0;
    for (std::string line; digits.problem.empty() && input.ReadLine(line); ++number) {
        hasFrame = digits.AppendLine(line) || hasFrame;
    }
    if (hasFrame) {
        digits.Visit(input.Name() + (digits.problem.empty() ? "" : ":" + std::to_string(number)), visit);
    }
}

void ReadBytes(tools::InputFile& input, const FrameVisitor& visit) {
    ByteWindow window(input);
    bool isValid = true;
    for (size_t offset = 0; isValid && (!window.Bytes().empty() || window.ReadMore());) {
        Frame frame;
        frame.where = input.Name() + (offset == 0 ? "" : ": byte " + std::to_string(offset));
        frame.offset = offset;
        frame.decoded = DecodeNext(window, frame.size);
        isValid = frame.decoded.message != nullptr;
        if (!isValid && frame.decoded.problems.front().offset < window.Bytes().size()) {
            frame.decoded.problems.front().text += "; the bytes from here on cannot be split into frames";
        }
        visit(frame);
        window.Discard(frame.size);
        offset += frame.size;
    }
}

} // namespace msg
