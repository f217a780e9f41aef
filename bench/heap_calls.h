// Counts the calls of malloc, calloc and realloc in a benchmark program's own code, each thread for itself.
#pragma once

#include <cstddef>

size_t heapCalls();
