// Datagrams of a controller into the byte ring and out of the conversion. The input is cut into datagrams, each after
// one byte that tells its length; an odd one lets the processing task run behind it.
#include <algorithm>
#include <cstdint>
#include <span>

#include "hand_over.h"
#include "spat_conv_signal_machine_1743_stream.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startHandOver();
    v2xspatconv_Init1743Ring();
    std::span<const uint8_t> input(data, size);
    while (!input.empty()) {
        const uint8_t control = input[0];
        input = input.subspan(1);
        const size_t length = std::min<size_t>(input.size(), control * 4U);
        const std::unique_ptr<uint8_t[]> bytes = exactCopy(input.data(), length);
        input = input.subspan(length);
        v2xpub_UdpSocketDataHead_t datagram = {static_cast<int16_t>(length), bytes.get()};
        v2xspatconv_GetSignalMachine1743DataRcv(nullptr, &datagram, nullptr, 0);
        if (control % 2 == 1) {
            DealSignalMachine1743DataRcv(nullptr);
        }
    }
    DealSignalMachine1743DataRcv(nullptr);
    checkHandOver();
    return 0;
}
