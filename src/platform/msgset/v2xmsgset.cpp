#include "v2x/v2xmsgset.h"

#include <cstdint>
#include <cstring>

#include "per_decoder.h"
#include "per_encoder.h"
#include "xer_decoder.h"
#include "xer_encoder.h"

namespace {

// The output of an encoder.
struct Output {
    uint8_t* bytes;
    size_t capacity; // size of the buffer `bytes`
    size_t size;     // size of the complete encoding, which may exceed the capacity
};

// Callback of the encoders: appends `size` bytes at `data`, or only counts the bytes if they exceed the capacity. `key`
// points to an Output. Returns 0.
int Append(const void* data, size_t size, void* key) {
    auto& output = *static_cast<Output*>(key);
    if (output.size <= output.capacity && size <= output.capacity - output.size && size > 0) {
        std::memcpy(output.bytes + output.size, data, size);
    }
    output.size += size;
    return 0;
}

} // namespace

asn_enc_rval_t asn_encode_to_buffer(const asn_codec_ctx_t* /*context*/, asn_transfer_syntax syntax,
                                    asn_TYPE_descriptor_t* type, const void* structure, void* buffer,
                                    size_t buffer_size) {
    Output output{static_cast<uint8_t*>(buffer), buffer_size, 0};
    auto* value = const_cast<void*>(structure); // the encoders only read the value, but their signature lacks const
    asn_enc_rval_t result{-1, nullptr, value};
    switch (syntax) {
    case ATS_UNALIGNED_CANONICAL_PER:
        result = uper_encode(type, value, Append, &output);
        if (result.encoded == 0) {
            Append("", 1, &output); // ITU-T X.691 11.1: a complete encoding has at least one octet
        }
        break;
    case ATS_BASIC_XER:
        result = xer_encode(type, value, XER_F_BASIC, Append, &output);
        break;
    case ATS_CANONICAL_XER:
        result = xer_encode(type, value, XER_F_CANONICAL, Append, &output);
        break;
    case ATS_INVALID:
        break;
    }
    if (result.encoded >= 0) {
        result.encoded = static_cast<ssize_t>(output.size);
    }
    return result;
}

asn_dec_rval_t asn_decode(const asn_codec_ctx_t* context, asn_transfer_syntax syntax, asn_TYPE_descriptor_t* type,
                          void** structure, const void* buffer, size_t size) {
    asn_codec_ctx_t copy = context == nullptr ? asn_codec_ctx_t{} : *context; // the decoders modify the context
    switch (syntax) {
    case ATS_UNALIGNED_CANONICAL_PER:
        return uper_decode_complete(&copy, type, structure, buffer, size);
    case ATS_BASIC_XER:
    case ATS_CANONICAL_XER:
        return xer_decode(&copy, type, structure, buffer, size);
    case ATS_INVALID:
        break;
    }
    return {RC_FAIL, 0};
}
