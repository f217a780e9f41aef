// Decodes the input as one frame in unaligned PER and checks the frame. A decoder that refuses parts of a newer edition
// must fail exactly if the message viewer has notes about such parts.
#include <cstdlib>

#include "codec.h"
#include "exact_copy.h"
#include "frame_check.h"

namespace {

bool isRefused(const uint8_t* bytes, size_t size) {
    asn_codec_ctx_t context{};
    context.unknown = [](const asn_unknown_t*, void*) { return 1; };
    void* frame = nullptr;
    const auto code =
        asn_decode(&context, ATS_UNALIGNED_CANONICAL_PER, &asn_DEF_MessageFrame, &frame, bytes, size).code;
    ASN_STRUCT_FREE(asn_DEF_MessageFrame, static_cast<MessageFrame_t*>(frame));
    return code != RC_OK;
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::unique_ptr<uint8_t[]> bytes = exactCopy(data, size);
    ASNSTRUCT_HANDLE hdl = nullptr;
    if (v2xcodec_uperDec(&hdl, bytes.get(), static_cast<int16_t>(size)) == 0) {
        checkFrame(&hdl);
    }
    const msg::Decoded decoded = msg::DecodeFrame({bytes.get(), size});
    if (isRefused(bytes.get(), size) != (decoded.message == nullptr || !decoded.notes.empty())) {
        abort();
    }
    return 0;
}
