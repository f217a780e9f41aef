// Reports the daemon's threads that make no progress. Main thread.
#pragma once

#include <cstdint>

// Checks the threads at the monotonic time `now`, in microseconds. Logs one line when a thread is stuck and one when it
// makes progress again. Returns true if no thread is stuck. Call it at least every second.
bool v2xspatconv_CheckThreads(uint64_t now);
