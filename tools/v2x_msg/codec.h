// Frames and XER documents to messages and back, with what is wrong with them in the words of who looks at a capture.
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

struct FreeMessage {
    void operator()(MessageFrame_t* message) const;
};
using Message = std::unique_ptr<MessageFrame_t, FreeMessage>;

// Why a text or frame is not what it should be, and how far into it, in bytes; NOWHERE when no place is known.
struct Problem {
    static constexpr size_t NOWHERE = SIZE_MAX;
    size_t offset;
    std::string text;
};

// A message may be there with problems: bytes left over behind it, a value outside its constraint.
struct Decoded {
    Message message; // null when nothing whole was found
    std::vector<Problem> problems;
};

// Decodes one frame (UPER). The place of a frame that cannot be decoded is the byte where decoding stopped.
Decoded DecodeFrame(std::span<const uint8_t> frame);

// Decodes one document.
Decoded DecodeXer(std::string_view document);

// Basic XER. Empty when it cannot be encoded, for an alternative of a newer edition, which has no name; `failedType` is
// then the type's name.
std::string EncodeXer(const MessageFrame_t& message, std::string& failedType);

// UPER; empty as above.
std::vector<uint8_t> EncodeFrame(const MessageFrame_t& message, std::string& failedType);

} // namespace msg
