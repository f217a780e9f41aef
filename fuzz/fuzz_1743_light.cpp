// Passes the input to the light-status conversion as the payload of one controller frame. Overwrites the control type
// and the object id with those of a light-status frame, so that the conversion does not reject the payload early.
#include <cstdint>

#include "hand_over.h"
#include "spat_conv_signal_machine_1743_light.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startHandOver();
    const std::unique_ptr<uint8_t[]> payload = exactCopy(data, size);
    if (size > 26) {
        payload[24] = 0x87;
        payload[25] = 0x03;
        payload[26] = 0x01;
    }
    DealSignalMachineDataTable({payload.get(), size}, {});
    checkHandOver();
    return 0;
}
