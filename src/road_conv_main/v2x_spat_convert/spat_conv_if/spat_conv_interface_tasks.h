// The daemon's own periodic tasks.
#pragma once

#include <cstdint>

// Creates the five tasks in the order of their table. The first failure is logged, returns the code of its row (-2 to
// -6) and leaves the later tasks uncreated. Returns 0 on success. Main thread, once.
int32_t v2xspatconv_TaskInit(void);
