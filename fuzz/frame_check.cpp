#include "frame_check.h"

#include <cstdio>
#include <cstdlib>
#include <vector>

namespace {

using Bytes = std::vector<uint8_t>;

void abortUnless(bool condition, const char* failure) {
    if (!condition) {
        fprintf(stderr, "checkFrame: %s\n", failure);
        abort();
    }
}

// Returns an empty vector if the frame cannot be encoded. The first buffer is often too small: this tests whether the
// encoder respects the buffer's size.
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
    abortUnless(false, "two encodings of one frame have different sizes");
    return {};
}

// Decodes the bytes and encodes the frame in PER.
Bytes reencode(asn_transfer_syntax syntax, const Bytes& bytes) {
    void* frame = nullptr;
    const asn_dec_rval_t result =
        asn_decode(nullptr, syntax, &asn_DEF_MessageFrame, &frame, bytes.data(), bytes.size());
    abortUnless(result.code == RC_OK, "an encoded frame cannot be decoded");
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
    abortUnless(!uper.empty() && !xer.empty() && !canonical.empty(), "a valid frame cannot be encoded");
    abortUnless(reencode(ATS_UNALIGNED_CANONICAL_PER, uper) == uper, "a PER round trip changes the frame");
    abortUnless(reencode(ATS_BASIC_XER, xer) == uper, "a basic XER round trip changes the frame");
    abortUnless(reencode(ATS_CANONICAL_XER, canonical) == uper, "a canonical XER round trip changes the frame");
}
