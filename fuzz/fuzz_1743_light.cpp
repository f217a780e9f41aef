// One frame payload of a controller straight into the light-status conversion. Header fields that only decide whether
// the frame is looked at at all are set, so that the rest is reached.
#include <cstdint>
#include <vector>

#include "hand_over.h"
#include "spat_conv_signal_machine_1743_light.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startHandOver();
    std::vector<uint8_t> payload(data, data + size);
    if (payload.size() > 26) {
        payload[24] = 0x87;
        payload[25] = 0x03;
        payload[26] = 0x01;
    }
    DealSignalMachineDataTable(payload);
    checkHandOver();
    return 0;
}
