// Describes messages for people: type, size and the most important values as tables.
#pragma once

#include <array>
#include <cstddef>
#include <string>

#include "v2x/v2xmsgset.h"

namespace msg {

// A type of message.
struct MessageKind {
    MessageFrame_PR present;
    const char* name; // in titles: "SPAT"
    const char* key;  // on command lines: "spat"
    // Formats the text after the size: ", msgCnt N", a line feed, and the table.
    std::string (*format)(const MessageFrame_t& message);
};

// All types, in the order of MessageFrame_PR. The first is the unknown type of a newer edition.
extern const std::array<MessageKind, MessageFrame_PR_msgFrameExt + 1> MESSAGE_KINDS;

const MessageKind& FindKind(const MessageFrame_t& message);

// Returns the line "SPAT, 93 bytes, msgCnt 5" and the lines of the table. `frameSize` is in bytes.
std::string Describe(const MessageFrame_t& message, size_t frameSize);

} // namespace msg
