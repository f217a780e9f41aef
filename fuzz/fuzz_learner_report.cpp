// One datagram of a signal learner through check, conversion and hand-over.
#include <cstdlib>
#include <fstream>

#include "fakes.h"
#include "spat_conv_config.h"
#include "spat_conv_signal_learner_quor_report.h"
#include "spat_conv_stack_interface.h"

namespace {

bool start() {
    char file[] = "/tmp/v2x_fuzz.XXXXXX";
    const int fd = mkstemp(file);
    std::ofstream(file) << "<device_id>RSU0001</device_id>";
    fakes::cfgTree["rsuSpatConfigInfo.Sysinfoname"] = std::string(file);
    fakes::cfgTree["rsuSpatConfigInfo.PhaseRelationship.PhaseID3"] = 7;
    const spat_conv_config_t* config = nullptr;
    const bool loaded = v2xspatconv_GetCfgData(&config) == 0 && v2xspatconv_StackInterfaceInit(config) == 0;
    remove(file);
    return loaded && fd >= 0;
}

// What the stack application relies on: lengths that agree, and at most 32 entries with states.
void checkFrame(const std::vector<uint8_t>& frame) {
    const size_t packLen = frame.at(14) + 256U * frame.at(15);
    const size_t dataLen = frame.at(25) + 256U * frame.at(26);
    if (frame.size() != packLen + 17 || packLen != dataLen + 11 || dataLen > V2XIPC_RECORD_SIZE) {
        abort();
    }
}

} // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
    static const bool started = start();
    if (!started || size > INT16_MAX) {
        abort();
    }
    std::vector<uint8_t> exact(data, data + size);
    exact.reserve(1);
    v2xpub_UdpSocketDataHead_t datagram = {static_cast<int16_t>(size), exact.data()};
    v2xspatconv_GetLearnMachineDataRcv(nullptr, &datagram, nullptr, 0);
    for (const fakes::Datagram& sent : fakes::sent) {
        checkFrame(sent.bytes);
    }
    fakes::sent.clear();
    fakes::logLines.clear();
    return 0;
}
