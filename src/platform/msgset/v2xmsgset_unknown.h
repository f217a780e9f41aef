// Functions of the message set's decoders. They pass unknown parts of the input to the callback in the decoder's
// context (asn_codec_ctx_t).
#pragma once

#include <stddef.h>
#include <sys/types.h>

#include "asn_application.h"
#include "xer_decoder.h"

// Calls the callback, if there is one, with an asn_unknown_t of the given members. Returns 0 if the decoder may skip
// the part.
int v2xmsgset_ReportUnknown(const asn_codec_ctx_t* context, asn_unknown_kind_t kind, const asn_TYPE_descriptor_t* type,
                            const void* data, size_t size, long value);

// Where in an element the decoder asks for the next token.
typedef enum v2xmsgset_place_e {
    V2XMSGSET_AT_START,   // before the start tag
    V2XMSGSET_IN_BODY,    // between child elements
    V2XMSGSET_IN_VALUE,   // in an element without child elements
    V2XMSGSET_IN_SKIPPED, // in an unknown element, which has been reported
} v2xmsgset_place_e;

// Returns the next token, as xer_next_token does. Reports text between elements, and the attributes of each start tag
// and end tag once. Returns -1 if the callback refuses one of them.
ssize_t v2xmsgset_NextToken(const asn_codec_ctx_t* context, const asn_TYPE_descriptor_t* type, v2xmsgset_place_e place,
                            int* state, const void* buffer, size_t size, pxer_chunk_type_e* token);
