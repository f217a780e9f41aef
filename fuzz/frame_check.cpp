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

// Empty when the frame cannot be encoded. A first buffer that is often too small has its bounds tested too.
Bytes encode(asn_transfer_syntax syntax, ASNSTRUCT_HANDLE hdl) {
    Bytes bytes(64);
    for (int attempt = 0; attempt < 2; attempt++) {
        const asn_enc_rval_t result =
            asn_encode_to_buffer(nullptr, syntax, &asn_DEF_MessageFrame, hdl, bytes.data(), bytes.size());
        if (result.encoded < 0) {
            return {};
        }
        const bool whole = static_cast<size_t>(result.encoded) <= bytes.size();
        bytes.resize(static_cast<size_t>(result.encoded));
        if (whole) {
            return bytes;
        }
    }
    expect(false, "the size of an encoding changes");
    return {};
}

Bytes encodedAgain(asn_transfer_syntax syntax, const Bytes& bytes) {
    void* frame = nullptr;
    const asn_dec_rval_t result =
        asn_decode(nullptr, syntax, &asn_DEF_MessageFrame, &frame, bytes.data(), bytes.size());
    expect(result.code == RC_OK, "an encoding does not decode");
    const Bytes again = encode(ATS_UNALIGNED_CANONICAL_PER, frame);
    v2xcodec_freeStrcut(&frame);
    return again;
}

} // namespace

void checkFrame(ASNSTRUCT_HANDLE* hdl) {
    const bool within = asn_check_constraints(&asn_DEF_MessageFrame, *hdl, nullptr, nullptr) == 0;
    const Bytes uper = encode(ATS_UNALIGNED_CANONICAL_PER, *hdl);
    const Bytes xer = encode(ATS_BASIC_XER, *hdl);
    const Bytes canonical = encode(ATS_CANONICAL_XER, *hdl);
    v2xcodec_freeStrcut(hdl);
    if (!within) {
        return;
    }
    expect(!uper.empty() && !xer.empty() && !canonical.empty(), "a frame within its constraints does not encode");
    expect(encodedAgain(ATS_UNALIGNED_CANONICAL_PER, uper) == uper, "not the same by way of PER");
    expect(encodedAgain(ATS_BASIC_XER, xer) == uper, "not the same by way of XER");
    expect(encodedAgain(ATS_CANONICAL_XER, canonical) == uper, "not the same by way of canonical XER");
}
