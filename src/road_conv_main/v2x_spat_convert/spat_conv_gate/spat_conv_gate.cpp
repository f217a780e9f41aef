#include "spat_conv_gate.h"

#include "spat_conv_stack_interface.h"

void v2xspatconv_GateInit(const spat_conv_config_t& /*config*/, uint64_t /*now*/) {}

void v2xspatconv_GateSwitchOff(e_v2xspatconv_source /*source*/) {}

int32_t v2xspatconv_GateRecord(e_v2xspatconv_source /*source*/, const v2xipc_phases_t* record,
                               const v2xspatconv_findings_t& /*findings*/, v2xpub_address_t /*sender*/,
                               uint64_t /*now*/) {
    return v2xspatconv_SpatNotify(record);
}

uint64_t v2xspatconv_GateTick(uint64_t /*now*/) {
    return UINT64_MAX;
}

void v2xspatconv_GateStop(uint64_t /*now*/) {}

void v2xspatconv_GateGetSources(v2xspatconv_sourceRow_t (&rows)[V2XSPATCONV_SOURCES]) {
    for (auto& row : rows) {
        row = {};
    }
}
