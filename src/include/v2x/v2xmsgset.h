// The national C-V2X application-layer message set: its types (MessageFrame, SPAT, ...) as C structures, a descriptor
// of each type (asn_DEF_MessageFrame, ...), and functions to encode and decode values.
//
// An optional member is a pointer, which is null if the member is absent. A list has the members `array` and `count`.
// All memory comes from malloc. Release every value, even after a failed decoding: ASN_STRUCT_FREE releases the
// structure and all its members, ASN_STRUCT_FREE_CONTENTS_ONLY releases only the members.
//
// Any thread may call any function. Only one thread at a time may use a value.
#pragma once

#include <assert.h>
#include <stddef.h>

#include "MessageFrame.h"
#include "asn_application.h"

#ifdef __cplusplus
extern "C" {
#endif

// INTEGER and ENUMERATED members have the type long. The program stores 64-bit values in such members without a check.
static_assert(sizeof(long) == 8, "the message set's integers must have 64 bits");

typedef enum asn_transfer_syntax {
    ATS_INVALID = 0,
    ATS_BASIC_XER,               // indented XML; ITU-T X.693 clause 8
    ATS_CANONICAL_XER,           // XML without white space; ITU-T X.693 clause 9
    ATS_UNALIGNED_CANONICAL_PER, // the encoding for radio transmission; ITU-T X.691, unaligned
} asn_transfer_syntax;

// Encodes the value `structure` of type `type` into `buffer`, which has `buffer_size` bytes. `buffer` may be null if
// `buffer_size` is 0. `context` is ignored and may be null.
//
// On success `encoded` is the size of the complete encoding in bytes. If `encoded` exceeds `buffer_size`, the content
// of the buffer is not usable, and the caller can retry with a buffer of `encoded` bytes. The function never writes
// beyond the buffer. On failure `encoded` is -1, and `failed_type` is the descriptor of the type that cannot be
// encoded, or in PER of the outermost list that contains the value. `failed_type` is null for an unknown syntax. PER
// rejects numbers, sizes and alternatives that violate their constraints. XER accepts such numbers and sizes, so call
// asn_check_constraints before encoding.
asn_enc_rval_t asn_encode_to_buffer(const asn_codec_ctx_t* context, asn_transfer_syntax syntax,
                                    asn_TYPE_descriptor_t* type, const void* structure, void* buffer,
                                    size_t buffer_size);

// Decodes one value of type `type` from the start of `buffer`, which has `size` bytes. If *structure is null, allocates
// the value; otherwise *structure must point to a zeroed value. If `context` is null, the stack size is not limited;
// the types of the message set need a small stack. Each XER syntax accepts both basic and canonical XER.
//
// `code` is RC_OK, RC_WMORE if the bytes end too early, or RC_FAIL. If `code` is RC_OK, `consumed` is the number of
// bytes read, which may be less than `size`. If *structure is not null, the caller must release the value for every
// `code`. Decoding does not check every constraint; call asn_check_constraints after decoding.
//
// The decoders skip what the message set does not know. In PER: an addition; an alternative, which leaves its choice
// empty (present 0); an enumerated value, which becomes the first value of its type. In XER: an element, attributes and
// text between elements. If context->unknown is not null, the decoder passes each such part to this callback, in the
// order of the input. The callback decides whether the decoder skips the part or fails with RC_FAIL. The declarations
// of asn_unknown_f and asn_unknown_t in asn_codecs.h describe its arguments.
asn_dec_rval_t asn_decode(const asn_codec_ctx_t* context, asn_transfer_syntax syntax, asn_TYPE_descriptor_t* type,
                          void** structure, const void* buffer, size_t size);

#ifdef __cplusplus
}
#endif
