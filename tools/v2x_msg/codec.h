// Decodes frames and XER documents into messages, encodes messages, and describes invalid input.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "v2x/v2xmsgset.h"

namespace msg {

struct MessageDeleter {
    void operator()(MessageFrame_t* message) const;
};
using Message = std::unique_ptr<MessageFrame_t, MessageDeleter>;

// Why a frame or document is invalid.
struct Problem {
    static constexpr size_t UNKNOWN_OFFSET = SIZE_MAX;
    size_t offset; // of the invalid byte in the frame or document, from 0; or UNKNOWN_OFFSET
    std::string text;
};

struct Decoded {
    Message message; // null if decoding failed
    // A decoded message can also have problems: bytes after its end, or a value outside its constraint.
    std::vector<Problem> problems;
    // What decoding skipped: parts of a newer edition in a frame, or unknown parts of a document. A note is not an
    // error. After MAX_NOTES notes, one more note has the number of further parts.
    static constexpr size_t MAX_NOTES = 10;
    std::vector<std::string> notes;
    std::vector<size_t> noteOffsets; // of each note in the document, from 0; empty for a frame
};

// Returns the result for an input that cannot be decoded because of `problem`.
Decoded MakeInvalid(const std::string& problem);

// Decodes one frame in UPER. The offset of a problem is the byte at which decoding stopped.
Decoded DecodeFrame(std::span<const uint8_t> frame);

// Decodes the frame at the start of the bytes, which may continue after it, and sets `size` to its size in bytes. If
// decoding fails, sets `size` to the number of all bytes; this is also the problem's offset if the frame needs more
// bytes.
Decoded DecodeFirst(std::span<const uint8_t> bytes, size_t& size);

// What to do with elements, attributes and text that the message set does not know.
enum class Unknown {
    refuse, // decoding fails; the only problem describes the first unknown part
    skip,   // a note describes each unknown part
};

// Decodes one document in XER. Only white space may precede or follow the document.
Decoded DecodeXer(std::string_view document, Unknown unknown);

// Encodes the message in basic XER. Returns an empty string if encoding fails, and sets `failedType` to the name of the
// type. Encoding fails for an alternative of a newer edition: the alternative has no name in XER.
std::string EncodeXer(const MessageFrame_t& message, std::string& failedType);

// Encodes the message in UPER. Returns an empty vector and sets `failedType` if encoding fails.
std::vector<uint8_t> EncodeFrame(const MessageFrame_t& message, std::string& failedType);

} // namespace msg
