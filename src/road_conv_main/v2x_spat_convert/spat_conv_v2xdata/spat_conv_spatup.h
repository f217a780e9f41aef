// SPAT up: what the stack application hands over, as documents for the cloud.
//
// Keys and types are told in docs/interfaces.md; numbers are written as they are. Failures are logged at level 2 under
// the tag "SPUP". Any thread, also several at once, each with a frame of its own.
#pragma once

#include <cstdint>

#include "v2xapp_upercodec.h"

// Publishes the frame's SPAT on the topic ".../spat/up". The frame is released and *p_handle becomes null, whatever the
// result. Returns 0 when the text was handed to the cloud channel, whether a reader is there or not; -2 for a null
// p_handle; -3 without a cloud channel; -4 when there is no text: no frame, one that carries no SPAT, or no memory.
int32_t v2xspatconv_SpatDataUp(ASNSTRUCT_HANDLE* p_handle);

// The document's text without white space; the caller releases it with cJSON_free. Null for a null SPAT or without
// memory. What memory is lacking for below the root is left out, and so is what a list has no element for.
char* v2xspatconv_SpatStructToJson(const SPAT_t* spatFrame);
