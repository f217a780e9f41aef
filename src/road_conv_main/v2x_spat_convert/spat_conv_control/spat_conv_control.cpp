#include "spat_conv_control.h"

void v2xspatconv_ControlInit(const spat_conv_config_t& /*config*/, const v2xspatconv_controlUnit_t& /*unit*/) {}

void v2xspatconv_ControlStop(void) {}
