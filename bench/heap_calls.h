// Counts the calls of malloc, calloc and realloc from statically linked code. Calls from shared libraries do not count.
#pragma once

#include <cstddef>

// Returns the number of calls that the calling thread has made since its start.
size_t countHeapCalls();
