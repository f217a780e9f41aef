// Pieces that several messages share: bit strings as integers.
//
// Every call may be made on any thread; one value belongs to one thread at a time.
#pragma once

#include <cstdint>

#include "BIT_STRING.h"

using BITSTRING_HANDLE = BIT_STRING_t*;
