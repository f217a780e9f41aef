// The national C-V2X application-layer message set: its types (MessageFrame, SPAT, ...) as C structures, a descriptor
// for each (asn_DEF_MessageFrame, ...), and encoding and decoding.
//
// Optional members are pointers, null when absent. Lists have `array` and `count`. All memory is malloc's. The
// functions of a type's descriptor release a value, also after a failed decoding: ASN_STRUCT_FREE releases everything,
// ASN_STRUCT_FREE_CONTENTS_ONLY only what the value points to.
//
// Every function may be called on any thread; use one value on one thread at a time.
#pragma once

#include <cstddef>

#include "MessageFrame.h"
#include "asn_application.h"

// INTEGER and ENUMERATED members are longs. The code stores 64-bit values in them without a check.
static_assert(sizeof(long) == 8, "the message set's integers must have 64 bits");

enum asn_transfer_syntax {
    ATS_INVALID = 0,
    ATS_BASIC_XER,               // indented XML; ITU-T X.693 clause 8
    ATS_CANONICAL_XER,           // XML without white space; ITU-T X.693 clause 9
    ATS_UNALIGNED_CANONICAL_PER, // the encoding on the air; ITU-T X.691, unaligned
};

// Encodes the value of type `type` at `structure` into `buffer_size` bytes at `buffer`, which may be null if the size
// is 0. `context` is ignored and may be null.
//
// On success `encoded` is the size of the complete encoding in bytes. If that exceeds `buffer_size`, the buffer holds
// no usable encoding, nothing is written beyond it, and the caller can retry with a buffer of the reported size. On
// failure `encoded` is -1. `failed_type` is the descriptor of the type that cannot be encoded or of a list that
// contains it; it is null for an unknown syntax.
// PER rejects numbers, sizes and alternatives that violate their constraints. XER accepts such numbers and sizes, so
// call asn_check_constraints first.
asn_enc_rval_t asn_encode_to_buffer(const asn_codec_ctx_t* context, asn_transfer_syntax syntax,
                                    asn_TYPE_descriptor_t* type, const void* structure, void* buffer,
                                    size_t buffer_size);

// Decodes one value of type `type` from the start of the `size` bytes at `buffer`. If *structure is null, allocates the
// value; otherwise fills the zeroed value that *structure points to. A null `context` means no limit on the stack; the
// message set's types need little of it. Either XER syntax reads basic and canonical XER.
//
// `code` is RC_OK, RC_WMORE if the bytes end too early, or RC_FAIL. `consumed` is valid with RC_OK: the number of bytes
// read, which may be less than `size`. If *structure is not null, the caller releases it, whatever the code.
// Decoding does not enforce every constraint; call asn_check_constraints afterwards.
asn_dec_rval_t asn_decode(const asn_codec_ctx_t* context, asn_transfer_syntax syntax, asn_TYPE_descriptor_t* type,
                          void** structure, const void* buffer, size_t size);
