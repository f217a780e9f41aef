#include "hand_over.h"

#include <cstdlib>

#include "fakes.h"
#include "spat_conv_config.h"
#include "spat_conv_stack_interface.h"
#include "sysinfo_file.h"

namespace {

bool loadModules() {
    fakes::setLogLevel(6); // traces would take most of the time
    const SysinfoFile sysinfo;
    fakes::cfgTree["rsuSpatConfigInfo.PhaseRelationship.PhaseID3"] = 7;
    const spat_conv_config_t* config = nullptr;
    return v2xspatconv_GetCfgData(&config) == 0 && v2xspatconv_StackInterfaceInit() == 0;
}

void checkFrame(const std::vector<uint8_t>& frame) {
    const size_t packLen = frame.at(14) + 256U * frame.at(15);
    const size_t dataLen = frame.at(25) + 256U * frame.at(26);
    if (frame.size() != packLen + 17 || packLen != dataLen + 11 || dataLen > V2XIPC_RECORD_SIZE) {
        abort();
    }
}

} // namespace

void startHandOver() {
    static const bool isStarted = loadModules();
    if (!isStarted) {
        abort();
    }
}

void checkHandOver() {
    for (const fakes::Datagram& sent : fakes::sent) {
        checkFrame(sent.bytes);
    }
    fakes::sent.clear();
    fakes::logLines.clear();
}
