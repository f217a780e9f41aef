// Reads the input as v2x_msg does. The first byte selects hex, bytes, documents, or a capture.
#include <cstdlib>
#include <stdexcept>

#include "capture_source.h"
#include "document_source.h"
#include "frame_source.h"
#include "input_kind.h"
#include "memory_file.h"

namespace {

// A frame has a message or a problem. The frames of an input of bytes follow each other.
void Check(const msg::Frame& frame, bool isRaw, size_t& end) {
    if (frame.decoded.message == nullptr && frame.decoded.problems.empty()) {
        abort();
    }
    if (isRaw && (frame.offset != end || (frame.decoded.message != nullptr && frame.size == 0))) {
        abort();
    }
    end += frame.size;
}

void ReadDocuments(tools::InputFile& input) {
    msg::DocumentSource documents(input);
    for (msg::Document document; documents.Next(document);) {
        if (document.text.empty()) {
            abort();
        }
    }
}

void Read(tools::InputFile& input, uint8_t choice, size_t size) {
    const bool isRaw = choice % 5 == 0;
    size_t end = 0;
    const msg::FrameVisitor visit = [&](const msg::Frame& frame) { Check(frame, isRaw, end); };
    switch (choice % 5) {
    case 0:
        msg::ReadBytes(input, visit);
        if (end > size) {
            abort();
        }
        break;
    case 1:
        msg::ReadLines(input, visit);
        break;
    case 2:
        ReadDocuments(input);
        break;
    case 3:
        msg::ReadCapture(input, {}, visit);
        break;
    default:
        msg::ReadCapture(input, {47, 2}, visit);
        break;
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    if (size == 0) {
        return 0;
    }
    tools::InputFile input(writeMemoryFile(data + 1, size - 1));
    const auto wanted = static_cast<msg::Wanted>(data[0] / 5 % 3);
    msg::Advise(msg::RecognizeInput(input, wanted), wanted);
    try {
        Read(input, data[0], size);
    } catch (const std::runtime_error&) {
        // not a capture
    }
    return 0;
}
