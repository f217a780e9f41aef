// Configuration trees of the unit: libconfig files, read once into memory and queried by dotted keys.
//
// A context belongs to the thread that opened it. Threads may use different contexts at the same time.
#pragma once

#include <cstdint>

using V2X_CFGHANDLE = struct v2xcfg_context*;

enum e_v2xcfg_type : int32_t {
    V2XCFG_TYPE_BOOL = 1,   // destination bool; true, false, and the integers 0 and 1
    V2XCFG_TYPE_INT32 = 2,  // destination int32_t
    V2XCFG_TYPE_STRING = 3, // destination char[*length + 1]
};

// Reads and parses the file `path`. On success it stores a context; close it with v2xcfg_ExitContext.
// Returns 0; -2 for a null argument; -3 when the file cannot be read (missing, not a regular file, over 64 KiB); -4 for
// a syntax error, an integer beyond 32 bits, a NUL byte or an @include, with the line in the error text.
int32_t v2xcfg_InitContext(V2X_CFGHANDLE* root, const char* path);

// Reads the value of `key` ("group.name"). For a string, *length is the maximum number of characters without the NUL
// and becomes the number stored. The other types ignore length. The destination needs no alignment.
// Returns 0; -1 when the key is missing; -2 for a null argument, an unknown type or a negative length; -3 when the
// value has another type or is too long. A failure leaves the destination and *length unchanged.
int32_t v2xcfg_GetNodeValue(V2X_CFGHANDLE root, e_v2xcfg_type type, const char* key, void* destination,
                            int32_t* length);

// Frees the context; ignores null. Returns 0.
int32_t v2xcfg_ExitContext(V2X_CFGHANDLE root);

// Why the calling thread's last failed call failed: "file:line: key: reason", without the line or the key where there
// is none ("conf/a.cfg:7: ipc.port: expected an integer, found a string"). Never null; valid until this thread's next
// failed call.
const char* v2xcfg_GetErrorText(void);
