// Reads the input as v2x_msg does. The first byte selects bytes, hex, documents, or a capture.
#include <cstdlib>
#include <stdexcept>

#include "capture_source.h"
#include "document_source.h"
#include "input_kind.h"
#include "memory_file.h"

namespace {

void abortUnless(bool condition) {
    if (!condition) {
        abort();
    }
}

void Read(tools::InputFile& input, int choice, size_t size) {
    size_t end = 0; // of the last frame in an input of bytes
    const msg::FrameVisitor visit = [&](const msg::Frame& frame) {
        abortUnless(frame.decoded.message != nullptr || !frame.decoded.problems.empty());
        abortUnless(choice != 0 || (frame.offset == end && frame.size <= size - end));
        end += frame.size;
    };
    if (choice == 0) {
        msg::ReadBytes(input, visit);
    } else if (choice == 1) {
        msg::ReadLines(input, visit);
    } else if (choice == 2) {
        msg::DocumentSource documents(input);
        for (msg::Document document; documents.Next(document);) {
            abortUnless(!document.text.empty());
        }
    } else {
        msg::ReadCapture(input, choice == 3 ? msg::DatagramChoice{} : msg::DatagramChoice{47, 2}, visit);
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
        Read(input, data[0] % 5, size - 1);
    } catch (const std::runtime_error&) {
        return 0; // not a capture
    }
    return 0;
}
