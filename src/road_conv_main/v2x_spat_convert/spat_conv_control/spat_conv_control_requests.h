// Answers the requests of the control socket. Private to the control socket.
#pragma once

#include <cstdint>
#include <string>

#include "spat_conv_control.h"

// What the requests read. The configuration never changes.
struct v2xspatconv_controlContext_t {
    const spat_conv_config_t* config;
    v2xspatconv_controlUnit_t unit;
    uint64_t start;     // monotonic time of the start, microseconds
    uint64_t startWall; // wall-clock time of the start, microseconds since 1970
};

struct v2xspatconv_answer_t {
    std::string line;   // reply or error, with its line feed
    uint32_t kinds = 0; // bit set of the journal entries that the client wants from now on; bit: v2x_journalKind
};

// Returns the line {"error": "REASON"}.
std::string v2xspatconv_FormatError(const char* reason);

// Answers one request; `request` has no line feed. Thread of the control socket.
v2xspatconv_answer_t v2xspatconv_AnswerRequest(const std::string& request, const v2xspatconv_controlContext_t& context);
