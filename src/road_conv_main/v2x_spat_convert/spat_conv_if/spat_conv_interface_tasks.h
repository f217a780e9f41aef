// The daemon's own periodic tasks.
#pragma once

#include <cstdint>

// Creates the five tasks in the order of the task table. At the first failure the function logs the failure, creates no
// further task, and returns the code of the failed task (-2 to -6). Returns 0 on success. Main thread, once.
int32_t v2xspatconv_TaskInit(void);
