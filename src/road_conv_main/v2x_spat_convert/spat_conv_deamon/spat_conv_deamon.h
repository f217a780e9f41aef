// The process frame of v2x_spat_convert: start-up order, main loop, stop order.
#pragma once

#include <cstdint>

// Reads the command line, opens the log and starts every subsystem in order. Returns 0, even when a subsystem did not
// start. A configuration that cannot be loaded ends the start: standard error gets one line with the reason, the
// running flag is cleared, and the code of v2xspatconv_GetCfgData is returned. Main thread, once.
int32_t v2xspatconv_init(int32_t argc, char** argv);

// Runs the main loop until the running flag is cleared, then closes the cloud channel. Returns 0. Main thread.
int32_t v2xspatconv_exec(void);
