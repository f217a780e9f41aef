// Decodes frames and XER documents into messages, encodes messages, and describes what is wrong with the input.
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

// Why a text or frame is invalid, and the byte of it that is wrong; NOWHERE when that is unknown.
struct Problem {
    static constexpr size_t NOWHERE = SIZE_MAX;
    size_t offset;
    std::string text;
};

// A message may come with problems: bytes left over after it, a value outside its constraint.
struct Decoded {
    Message message; // null when decoding failed
    std::vector<Problem> problems;
};

// Decodes one frame (UPER). The place of a problem is the byte where decoding stopped.
Decoded DecodeFrame(std::span<const uint8_t> frame);

// Decodes one document (XER) with nothing but white space around it.
Decoded DecodeXer(std::string_view document);

// Encodes to basic XER. Returns nothing for an alternative of a newer edition, which has no name in XER; `failedType`
// is then the name of the type.
std::string EncodeXer(const MessageFrame_t& message, std::string& failedType);

// Encodes to UPER; fails as above.
std::vector<uint8_t> EncodeFrame(const MessageFrame_t& message, std::string& failedType);

} // namespace msg
