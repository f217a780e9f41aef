// SPAT up: converts the stack application's SPAT to documents and publishes the documents for the cloud.
//
// docs/interfaces.md lists keys and types. Numbers are written unscaled. Failures are logged at V2XLOG_ERROR under the
// tag "SPUP". Any thread; do not use the same frame on two threads at once.
#pragma once

#include <cstdint>

#include "v2x/v2xmsgset.h"
#include "v2xapp_upercodec.h"

// Publishes the frame's SPAT on the topic ".../spat/up". Frees the frame and sets *p_handle to null, even after a
// failure. Returns 0, even if the topic has no matched reader; -2 for a null p_handle; -4 if *p_handle is null, the
// frame contains another message, or memory runs out.
int32_t v2xspatconv_SpatDataUp(ASNSTRUCT_HANDLE* p_handle);

// Returns the text of the document without white space. The caller frees the text with cJSON_free. Returns null if
// spatFrame is null or memory runs out.
char* v2xspatconv_SpatStructToJson(const SPAT_t* spatFrame);
