// Passes controller datagrams to the byte ring and runs the processing task. The input is a list of datagrams. A
// control byte precedes each datagram: its length is four times that byte. After an odd control byte the processing
// task runs. A byte 255 before the control byte turns the datagram into a frame with this payload, escapes and a valid
// checksum, because random input almost never contains a valid checksum.
#include <algorithm>
#include <cstdint>
#include <span>

#include "frame_1743.h"
#include "hand_over.h"
#include "spat_conv_signal_machine_1743_stream.h"

namespace {

constexpr uint8_t MAKE_FRAME = 255;

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
    bool isFrame = false;
    while (!input.empty()) {
        const uint8_t control = input[0];
        input = input.subspan(1);
        if (control == MAKE_FRAME) {
            isFrame = true;
            continue;
        }
        const size_t length = std::min<size_t>(input.size(), control * 4U);
        if (isFrame) {
            const auto frame = frame_1743::frame({input.begin(), input.begin() + static_cast<ptrdiff_t>(length)});
            deliver(frame.data(), frame.size());
        } else {
            deliver(input.data(), length);
        }
        input = input.subspan(length);
        isFrame = false;
        if (control % 2 == 1) {
            DealSignalMachine1743DataRcv(nullptr);
        }
    }
    DealSignalMachine1743DataRcv(nullptr);
    checkHandOver();
    return 0;
}
