// The process frame of v2x_spat_convert: start-up order, main loop, stop order.
#pragma once

#include <cstdint>

// Reads the command line, opens the log and starts every subsystem in order. Only a configuration that cannot be loaded
// and memory that runs out stop it: then standard error gets one line with the reason, the running flag is cleared, and
// the load's code (v2xspatconv_GetCfgData), or -2 without memory, is returned. Returns 0 otherwise, whatever else did
// not start. Main thread, once.
int32_t v2xspatconv_init(int32_t argc, char** argv);

// Runs the main loop until a signal clears the running flag, and stops. Returns 0.
int32_t v2xspatconv_exec(void);
