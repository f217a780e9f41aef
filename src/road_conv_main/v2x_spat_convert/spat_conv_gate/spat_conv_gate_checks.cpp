#include "spat_conv_gate_checks.h"

void v2xspatconv_ChecksInit(const spat_conv_config_t& /*config*/) {}

v2xspatconv_verdict_t v2xspatconv_ChecksExamine(const v2xspatconv_sighting_t& /*sighting*/) {
    return {};
}

uint64_t v2xspatconv_ChecksTick(uint64_t /*now*/) {
    return UINT64_MAX;
}

int32_t v2xspatconv_ChecksCountActive(void) {
    return 0;
}
