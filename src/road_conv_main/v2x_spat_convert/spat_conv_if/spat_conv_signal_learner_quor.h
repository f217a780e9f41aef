// Adapter of the signal learner: receives phase reports over UDP and sends a heartbeat every second.
#pragma once

#include <cstdint>

#include "spat_conv_config.h"

// Starts the adapter: heartbeat task, receive socket, send socket. Returns 0; -2 without the task; -3 without the
// receive socket; -4 without the send socket. What was started before a failure keeps running. Main thread, once.
int32_t v2xspatconv_QuorSignalLearnerInterfaceInit(const spat_conv_config_t& spatconv_cfg);

// Task routine, every 5 s: logs state and counters of the link at level 5. `arg` is not used.
void v2xspatconv_DisplayQuorSignalInfo(void* arg);
