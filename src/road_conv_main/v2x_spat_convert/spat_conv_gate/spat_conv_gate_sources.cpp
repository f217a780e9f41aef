#include "spat_conv_gate_sources.h"
