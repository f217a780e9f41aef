// Counts the heap allocations of a benchmark program.
#pragma once

#include <cstddef>

// Calls of operator new so far, by all threads.
size_t allocations();
