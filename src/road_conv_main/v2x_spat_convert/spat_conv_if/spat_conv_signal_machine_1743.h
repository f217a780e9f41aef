// Adapter of the traffic-signal controller: receives GA/T 1743 light-status frames over UDP and sends nothing.
#pragma once

#include <cstdint>

#include "spat_conv_config.h"

// Starts the adapter: liveness task, processing task, byte ring, socket. Returns 0; -2 without a task; -3 without the
// socket. What was started before a failure keeps running. Main thread, once.
int32_t v2xspatconv_SignalMachine1743InterfaceInit(const spat_conv_config_t& spatconv_cfg);

// Task routine, every 5 s: logs state and counters of the link at level 5. `arg` is not used.
void v2xspatconv_Display1743SignalInfo(void* arg);
