// The national C-V2X application-layer message set: the types of its messages (MessageFrame, SPAT, ...) as C structures
// with one descriptor each (asn_DEF_MessageFrame, ...), and their encoding and decoding.
//
// Optional members are pointers, null when absent; lists hold `array` and `count`; memory is malloc's. A value is freed
// with its descriptor's free_struct: everything (ASN_STRUCT_FREE) or only what it points to
// (ASN_STRUCT_FREE_CONTENTS_ONLY), also after a decoding that failed.
//
// Every call may be made on any thread; one value belongs to one thread at a time.
#pragma once

#include <cstddef>

#include "MessageFrame.h"
#include "asn_application.h"

enum asn_transfer_syntax {
    ATS_INVALID = 0,
    ATS_BASIC_XER,               // XML, indented; ITU-T X.693 clause 8
    ATS_CANONICAL_XER,           // XML without white space; ITU-T X.693 clause 9
    ATS_UNALIGNED_CANONICAL_PER, // what travels on the air; ITU-T X.691, unaligned
};

// Encodes the value at `structure`, which is of the type `type`, into at most `buffer_size` bytes at `buffer` (null
// only with a size of 0). `context` is not used and may be null.
//
// On success `encoded` is the size of the whole encoding in bytes. Where that is above `buffer_size` the buffer holds
// no usable encoding, nothing is written beyond it, and the caller has learnt the size to come back with. On failure
// `encoded` is -1 and `failed_type` the descriptor of the type that does not encode, or of a list that such a value
// lies in; null for an unknown syntax. In PER a number, size or alternative outside its constraint fails; XER takes
// such numbers and sizes, look with asn_check_constraints first.
asn_enc_rval_t asn_encode_to_buffer(const asn_codec_ctx_t* context, asn_transfer_syntax syntax,
                                    asn_TYPE_descriptor_t* type, const void* structure, void* buffer,
                                    size_t buffer_size);

// Decodes one value of the type `type` from the first of `size` bytes at `buffer`. *structure is null, and a value is
// then allocated, or points to a zeroed one to be filled. `context` may be null: no limit to the stack, of which no
// type of the message set needs much. Both XER syntaxes read any XER.
//
// Results: `code` RC_OK; RC_WMORE when the bytes end too early; RC_FAIL. `consumed` is the number of bytes read when
// the code is RC_OK; it may be below `size`. Unless *structure is still null the caller frees it, whatever the code.
// Numbers outside their constraint may come through decoding: look with asn_check_constraints afterwards.
asn_dec_rval_t asn_decode(const asn_codec_ctx_t* context, asn_transfer_syntax syntax, asn_TYPE_descriptor_t* type,
                          void** structure, const void* buffer, size_t size);
