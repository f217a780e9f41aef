// Passes the input to the receive callback as one signal-learner datagram, and checks the resulting frames.
#include <cstdint>

#include "hand_over.h"
#include "spat_conv_signal_learner_quor_report.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startHandOver();
    if (size > INT16_MAX) {
        return -1;
    }
    const std::unique_ptr<uint8_t[]> bytes = exactCopy(data, size);
    v2xpub_UdpSocketDataHead_t datagram = {static_cast<int16_t>(size), bytes.get()};
    v2xspatconv_GetLearnMachineDataRcv(nullptr, &datagram, nullptr, 0);
    checkHandOver();
    return 0;
}
