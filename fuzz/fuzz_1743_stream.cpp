// Datagrams of a controller into the byte ring and out of the conversion. The input is cut into datagrams, each after
// one byte that tells its length; an odd one lets the processing task run behind it. A byte 255 before makes the
// datagram the payload of a frame, escaped and with the right checksum: chance alone would not find one.
#include <algorithm>
#include <cstdint>
#include <span>

#include "frame_1743.h"
#include "hand_over.h"
#include "spat_conv_signal_machine_1743_stream.h"

namespace {

constexpr uint8_t FRAMED = 255;

void deliver(const uint8_t* data, size_t length) {
    const std::unique_ptr<uint8_t[]> bytes = exactCopy(data, length);
    v2xpub_UdpSocketDataHead_t datagram = {static_cast<int16_t>(length), bytes.get()};
    v2xspatconv_GetSignalMachine1743DataRcv(nullptr, &datagram, nullptr, 0);
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startHandOver();
    initBuffer();
    std::span<const uint8_t> input(data, size);
    bool framed = false;
    while (!input.empty()) {
        const uint8_t control = input[0];
        input = input.subspan(1);
        if (control == FRAMED) {
            framed = true;
            continue;
        }
        const size_t length = std::min<size_t>(input.size(), control * 4U);
        if (framed) {
            const auto frame = frame_1743::frame({input.begin(), input.begin() + static_cast<ptrdiff_t>(length)});
            deliver(frame.data(), frame.size());
        } else {
            deliver(input.data(), length);
        }
        input = input.subspan(length);
        framed = false;
        if (control % 2 == 1) {
            DealSignalMachine1743DataRcv(nullptr);
        }
    }
    DealSignalMachine1743DataRcv(nullptr);
    checkHandOver();
    return 0;
}
