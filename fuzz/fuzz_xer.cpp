// Decodes the input as one frame in XER and checks the frame.
#include "exact_copy.h"
#include "frame_check.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    const std::unique_ptr<uint8_t[]> bytes = exactCopy(data, size);
    ASNSTRUCT_HANDLE hdl = nullptr;
    if (v2xcodec_xerDec(&hdl, bytes.get(), static_cast<int32_t>(size)) == 0) {
        checkFrame(&hdl);
    }
    return 0;
}
