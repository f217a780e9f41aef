// Start-up, main loop and stop of the daemon v2x_spat_convert.
#pragma once

#include <cstdint>

// Reads the command line, opens the log and starts every subsystem in order. Returns 0, even if a subsystem fails to
// start. If a configuration file is refused, prints the reason on standard error, clears the running flag and returns
// the result of v2xipc_CfgInit or v2xspatconv_GetCfgData. Main thread, once.
int32_t v2xspatconv_init(int32_t argc, char** argv);

// Runs the main loop until the running flag is cleared, then stops the gate and closes the cloud channel. Returns 0.
// Main thread.
int32_t v2xspatconv_exec(void);
