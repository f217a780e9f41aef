// Adapter of the signal learner: receives phase reports over UDP and sends a heartbeat every second.
#pragma once

#include <cstdint>

#include "spat_conv_config.h"

// Creates the heartbeat task and opens the receive socket and the send socket, in this order. Returns 0; -2 if the task
// cannot be created; -3 if the receive socket cannot be opened; -4 for the send socket. After a failure the tasks and
// sockets that exist keep running; without the receive socket the gate switches the source off. Main thread, once.
int32_t v2xspatconv_QuorSignalLearnerInterfaceInit(const spat_conv_config_t& spatconv_cfg);

// Task function, every 5 s: logs state and counters of the link at V2XLOG_DEBUG. Ignores `arg`.
void v2xspatconv_DisplayQuorSignalInfo(void* arg);
