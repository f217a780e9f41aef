// Describes what is wrong at a place in an XER document of a MessageFrame.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "v2x/v2xmsgset.h"

namespace msg {

// Describes a part that the decoder does not know, such as
// "MessageFrame/spatFrame: unknown element <nane>, did you mean <name>?". `offset` is the part's first byte.
std::string DescribeUnknownXer(std::string_view document, size_t offset, asn_unknown_kind_t kind);

// Describes why decoding stopped at the byte `offset`, such as "MessageFrame/spatFrame: <msgCnt> is missing".
std::string DescribeXerFailure(std::string_view document, size_t offset);

} // namespace msg
