// One frame payload of a controller straight into the light-status conversion. Header fields that only decide whether
// the frame is looked at at all are set, so that the rest is reached.
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
    DealSignalMachineDataTable({payload.get(), size});
    checkHandOver();
    return 0;
}
