// Passes the input to the log-control callback as one datagram of the log tool. A reply that lists the tags must have
// the length in its header. Every other reply must have the length of the request.
#include <cstdlib>

#include "fakes.h"
#include "hand_over.h"
#include "spat_conv_stack_interface_logctl.h"
#include "v2x/v2xlog.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    startHandOver();
    if (v2xlog_GetTagNum() == 0) {
        for (const char* tag : {"SPAT", "SINF", "1743"}) {
            V2X_LOGHANDLE handle = nullptr;
            v2xlog_AddTag(tag, &handle);
        }
    }
    const std::unique_ptr<uint8_t[]> datagram = exactCopy(data, size);
    v2xpub_UdpSocketDataHead_t message = {static_cast<int16_t>(size), datagram.get()};
    GetLogCtl(nullptr, &message, nullptr, 0);
    for (const fakes::Datagram& answer : fakes::sent) {
        const std::vector<uint8_t>& bytes = answer.bytes;
        const size_t expected = bytes.at(17) == 1 ? 17U + bytes.at(14) + 256U * bytes.at(15) : size;
        if (bytes.at(12) != 51 || bytes.size() != expected) {
            abort();
        }
    }
    fakes::sent.clear();
    fakes::logLines.clear();
    fakes::journal.clear();
    fakes::setLogLevel(6); // the input may have changed it
    return 0;
}
