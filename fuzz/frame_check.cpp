#include "frame_check.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

void expect(bool holds, const char* what) {
    if (!holds) {
        fprintf(stderr, "frame check: %s\n", what);
        abort();
    }
}

// Returns no bytes when the frame cannot be encoded. The first buffer is often too small, which tests its bounds.
Bytes encode(asn_transfer_syntax syntax, ASNSTRUCT_HANDLE hdl) {
    Bytes bytes(64);
    for (int attempt = 0; attempt < 2; attempt++) {
        const asn_enc_rval_t result =
            asn_encode_to_buffer(nullptr, syntax, &asn_DEF_MessageFrame, hdl, bytes.data(), bytes.size());
        if (result.encoded < 0) {
            return {};
        }
        const bool isComplete = static_cast<size_t>(result.encoded) <= bytes.size();
        bytes.resize(static_cast<size_t>(result.encoded));
        if (isComplete) {
            return bytes;
        }
    }
    expect(false, "the size of an encoding varies");
    return {};
}

// Decodes the bytes and encodes the result as PER.
Bytes reencoded(asn_transfer_syntax syntax, const Bytes& bytes) {
    void* frame = nullptr;
    const asn_dec_rval_t result =
        asn_decode(nullptr, syntax, &asn_DEF_MessageFrame, &frame, bytes.data(), bytes.size());
    expect(result.code == RC_OK, "an encoding cannot be decoded");
    const Bytes encoded = encode(ATS_UNALIGNED_CANONICAL_PER, frame);
    v2xcodec_freeStrcut(&frame);
    return encoded;
}

} // namespace

void checkFrame(ASNSTRUCT_HANDLE* hdl) {
    const bool isValid = asn_check_constraints(&asn_DEF_MessageFrame, *hdl, nullptr, nullptr) == 0;
    const Bytes uper = encode(ATS_UNALIGNED_CANONICAL_PER, *hdl);
    const Bytes xer = encode(ATS_BASIC_XER, *hdl);
    const Bytes canonical = encode(ATS_CANONICAL_XER, *hdl);
    v2xcodec_freeStrcut(hdl);
    if (!isValid) {
        return;
    }
    expect(!uper.empty() && !xer.empty() && !canonical.empty(), "a valid frame cannot be encoded");
    expect(reencoded(ATS_UNALIGNED_CANONICAL_PER, uper) == uper, "PER round trip differs");
    expect(reencoded(ATS_BASIC_XER, xer) == uper, "basic XER round trip differs");
    expect(reencoded(ATS_CANONICAL_XER, canonical) == uper, "canonical XER round trip differs");
}
