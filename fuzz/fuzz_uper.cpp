// Decodes the input as one frame in unaligned PER and checks the frame.
#include "exact_copy.h"
#include "frame_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::unique_ptr<uint8_t[]> bytes = exactCopy(data, size);
    ASNSTRUCT_HANDLE hdl = nullptr;
    if (v2xcodec_uperDec(&hdl, bytes.get(), static_cast<int16_t>(size)) == 0) {
        checkFrame(&hdl);
    }
    return 0;
}
