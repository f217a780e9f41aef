// Configuration library: reads a libconfig file into memory and returns values by dotted key.
//
// Only the thread that opened a context may use the context. Threads may use different contexts at the same time.
#pragma once

#include <cstdint>

using V2X_CFGHANDLE = struct v2xcfg_context*;

enum e_v2xcfg_type : int32_t {
    V2XCFG_TYPE_BOOL = 1,   // the destination is a bool; accepts true, false, 0 and 1
    V2XCFG_TYPE_INT32 = 2,  // the destination is an int32_t
    V2XCFG_TYPE_STRING = 3, // the destination is a char[*length + 1]
};

// Reads and parses the file `path`. On success stores a context in *root; close the context with v2xcfg_ExitContext.
// Returns 0; -2 for a null argument; -3 if the file cannot be read (missing, not a regular file, over 64 KiB); -4 for a
// syntax error, an integer that needs more than 32 bits, a NUL byte or an @include. The error text of -4 has the line.
int32_t v2xcfg_InitContext(V2X_CFGHANDLE* root, const char* path);

// Reads the value of `key` ("group.name") into the destination, which needs no alignment. For a string, set *length to
// the maximum number of characters without the NUL; the function replaces *length by the number of characters stored.
// The other types ignore `length`. Returns 0; -1 if the key is missing; -2 for a null argument, an unknown type or a
// negative length; -3 if the value has another type or is too long. On failure the destination and *length are
// unchanged.
int32_t v2xcfg_GetNodeValue(V2X_CFGHANDLE root, e_v2xcfg_type type, const char* key, void* destination,
                            int32_t* length);

// Frees the context; ignores null. Returns 0.
int32_t v2xcfg_ExitContext(V2X_CFGHANDLE root);

// Returns the reason why the last failed call of the calling thread failed, as "file:line: key: reason", for example
// "conf/a.cfg:7: ipc.port: expected an integer, found a string". The text omits an unknown line or key. The result is
// never null and is valid until the next failed call of the calling thread.
const char* v2xcfg_GetErrorText(void);
