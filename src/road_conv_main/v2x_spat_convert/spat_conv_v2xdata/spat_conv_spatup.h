// SPAT up: the stack application's SPAT, as documents for the cloud.
//
// docs/interfaces.md lists keys and types; numbers are written unscaled. Failures are logged at level 2 under the tag
// "SPUP". Any thread, several at once, each with its own frame.
#pragma once

#include <cstdint>

#include "v2x/v2xmsgset.h"
#include "v2xapp_upercodec.h"

// Publishes the frame's SPAT on the topic ".../spat/up". The frame is released and *p_handle becomes null, whatever the
// result. Returns 0 when the text was handed to the cloud channel, with or without a matched reader; -2 for a null
// p_handle; -4 without a text: no frame, a frame of another message, or no memory.
int32_t v2xspatconv_SpatDataUp(ASNSTRUCT_HANDLE* p_handle);

// The document's text without white space, to be released with cJSON_free; null for a null SPAT or without memory.
char* v2xspatconv_SpatStructToJson(const SPAT_t* spatFrame);
