// Decodes the input as one frame in XER and checks the frame. Decodes the input also as a document of the message
// viewer, which refuses or skips unknown parts.
#include <cstdlib>
#include <string_view>

#include "codec.h"
#include "exact_copy.h"
#include "frame_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::unique_ptr<uint8_t[]> bytes = exactCopy(data, size);
    ASNSTRUCT_HANDLE hdl = nullptr;
    const bool isFrame = v2xcodec_xerDec(&hdl, bytes.get(), static_cast<int32_t>(size)) == 0;
    if (isFrame) {
        checkFrame(&hdl);
    }
    const std::string_view document(reinterpret_cast<const char*>(bytes.get()), size);
    const msg::Decoded refused = msg::DecodeXer(document, msg::Unknown::refuse);
    const msg::Decoded skipped = msg::DecodeXer(document, msg::Unknown::skip);
    const bool isAccepted = skipped.message != nullptr && skipped.notes.empty();
    const bool isEmpty = skipped.message != nullptr && skipped.message->present == MessageFrame_PR_NOTHING;
    if ((refused.message != nullptr) != isAccepted || (skipped.message != nullptr && !isEmpty && !isFrame)) {
        abort();
    }
    return 0;
}
