// Counts the calls of malloc, calloc and realloc of a benchmark program of one thread.
#pragma once

#include <cstddef>

size_t heapCalls();
