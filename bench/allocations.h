// Replaces operator new and counts its calls.
#pragma once

#include <cstddef>

// Returns how often all threads have called operator new since the program's start. Any thread.
size_t countAllocations();
