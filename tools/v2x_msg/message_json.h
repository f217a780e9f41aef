// Converts messages to and from JSON, with the names of the ASN.1 modules.
#pragma once

#include <string>
#include <string_view>

#include "codec.h"

namespace msg {

// The end of the problem of an empty CHOICE.
inline constexpr const char* EMPTY_CHOICE = "empty: an alternative of a newer edition cannot be encoded";

// Appends the message as one line of JSON without a line end: {"spatFrame":{...}}. The text is ASCII. Never
// fails. An alternative of a newer edition appears as an empty object.
void AppendJson(const MessageFrame_t& message, std::string& text);

// Decodes one line of JSON: a message as AppendJson writes it, or an object with the members "packet", "time" and
// "MessageFrame", of which only the last, the message, is read. Only white space may precede or follow the object.
// Rejects unknown, repeated and missing members and values outside their constraint. At the first error decoding fails
// with one problem. It has the offset in the line, or its text has the path of the member:
// "MessageFrame/spatFrame/intersections/0/status: ...".
Decoded DecodeJson(std::string_view line);

} // namespace msg
