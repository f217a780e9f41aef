// Configuration trees of the unit: libconfig files, read once into memory, asked by dotted keys.
//
// A context belongs to the thread that opened it; different contexts may be used by different threads at once.
#pragma once

#include <cstdint>

using V2X_CFGHANDLE = struct v2xcfg_context*;

enum e_v2xcfg_type : int32_t {
    V2XCFG_TYPE_BOOL = 1,   // destination bool; true, false, and the integers 0 and 1
    V2XCFG_TYPE_INT32 = 2,  // destination int32_t; integers that fit 32 bits
    V2XCFG_TYPE_STRING = 3, // destination char[*length + 1]
};

// Reads and parses the file `path`. On success stores a context, to be closed with v2xcfg_ExitContext.
// Returns 0; -2 for a null argument; -3 when the file cannot be read (missing, no regular file, over 1 MiB); -4 when it
// is not understood; -5 without memory. Refused with the line besides syntax errors: @include, and integers that need
// more than 32 bits.
int32_t v2xcfg_InitContext(V2X_CFGHANDLE* root, const char* path);

// Reads the value under `key` ("group.name"). For a string *length is the greatest number of characters taken, the
// terminating NUL not counted, and becomes the number stored; for the other types length is not used and may be null.
// Returns 0; -1 when there is no such key; -2 for a null or unfit argument; -3 when the value is of another type, too
// long or out of range. Unless 0 is returned the destination is left alone. The destination needs no alignment.
int32_t v2xcfg_GetNodeValue(V2X_CFGHANDLE root, e_v2xcfg_type type, const char* key, void* destination,
                            int32_t* length);

// Frees the context; null is harmless. Returns 0.
int32_t v2xcfg_ExitContext(V2X_CFGHANDLE root);

// What the calling thread's last failed call found, as "file:line: reason" or "file: reason", the key named where there
// is one ("conf/a.cfg:7: ipc.port: expected an integer, found a string"). Valid until this thread's next call; never
// null.
const char* v2xcfg_GetErrorText(void);
