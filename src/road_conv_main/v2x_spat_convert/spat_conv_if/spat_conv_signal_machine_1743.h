// Adapter of the traffic-signal controller: receives GA/T 1743 light-status frames over UDP and sends nothing.
#pragma once

#include <cstdint>

#include "spat_conv_config.h"

// Creates the link-check task and the processing task, empties the byte ring, and opens the receive socket. Returns 0;
// -2 if a task cannot be created; -3 if the socket cannot be opened. After a failure the tasks that exist keep running
// and the gate switches the source off. Main thread, once.
int32_t v2xspatconv_SignalMachine1743InterfaceInit(const spat_conv_config_t& spatconv_cfg);

// Task function, every 5 s: logs state and counters of the link at V2XLOG_DEBUG. Ignores `arg`.
void v2xspatconv_Display1743SignalInfo(void* arg);
