// Configuration library: reads a libconfig file into memory and returns values by dotted key.
//
// Only the thread that opened a context may use the context. Threads may use different contexts at the same time.
//
// The library also collects the problems of all configuration files of the process, for a later listing.
#pragma once

#include <cstdint>

struct v2xlog_tag_t;

using V2X_CFGHANDLE = struct v2xcfg_context*;

enum e_v2xcfg_type : int32_t {
    V2XCFG_TYPE_BOOL = 1,   // the destination is a bool; accepts true, false, 0 and 1
    V2XCFG_TYPE_INT32 = 2,  // the destination is an int32_t
    V2XCFG_TYPE_STRING = 3, // the destination is a char[*length + 1]
    V2XCFG_TYPE_NUMBER = 4, // the destination is a double; accepts integers
    V2XCFG_TYPE_GROUP = 5,  // the destination is an int32_t, which receives the number of members
    V2XCFG_TYPE_LIST = 6,   // the destination is an int32_t, which receives the number of elements; accepts ( ), [ ]
                            // and a single value
};

enum e_v2xcfg_severity : int32_t {
    V2XCFG_ERROR = 2,   // the value is invalid
    V2XCFG_WARNING = 3, // the value is suspect, or the key has no effect
    V2XCFG_NOTE = 4,    // the configuration is valid; the operator should know this
};

// Reads and parses the file `path`. On success stores a context in *root; close the context with v2xcfg_ExitContext.
// Returns 0; -2 for a null argument; -3 if the file cannot be read (missing, not a regular file, over 64 KiB); -4 for a
// syntax error, an integer that needs more than 32 bits, a NUL byte or an @include. The error text of -4 has the line.
int32_t v2xcfg_InitContext(V2X_CFGHANDLE* root, const char* path);

// Reads the value of `key` ("group.name"; element i of a list is "group.name.[i]") into the destination, which needs no
// alignment. For a string, set *length to the maximum number of characters without the NUL; the function replaces
// *length by the number of characters stored. The other types ignore `length`. Returns 0; -1 if the key is missing; -2
// for a null argument, an unknown type or a negative length; -3 if the value has another type or is too long. On
// failure the destination and *length are unchanged. The function logs and collects each problem with the result -3
// once.
int32_t v2xcfg_GetNodeValue(V2X_CFGHANDLE root, e_v2xcfg_type type, const char* key, void* destination,
                            int32_t* length);

// Returns true if v2xcfg_GetNodeValue has found the key, or a key in the group of this name, in a file since the start
// of the process. Any thread.
bool v2xcfg_HasKey(const char* key);

// Frees the context; ignores null. Returns 0.
int32_t v2xcfg_ExitContext(V2X_CFGHANDLE root);

// Returns the reason why the last failed call of the calling thread failed, as "file:line: key: reason", for example
// "conf/a.cfg:7: ipc.port: expected an integer, found a string". The text omits an unknown line or key. After
// v2xcfg_Report it is the reported text. The result is never null and is valid until the next failed call or report of
// the calling thread.
const char* v2xcfg_GetErrorText(void);

// ---- problems ------------------------------------------------------------------------------------------------------

// Collects a problem, "file:line: key: reason", and replaces its control characters by blanks. Returns false if the
// text is already collected, and for a warning or a note if the process has 100 problems. Any thread.
bool v2xcfg_Collect(e_v2xcfg_severity severity, const char* problem);

// Collects the problem "file:line: key: reason". If v2xcfg_Collect returns true, logs it under `tag` at the level of
// the severity; a null `tag` does not log. The text has no line if the file lacks the key.
void v2xcfg_Report(v2xlog_tag_t* tag, e_v2xcfg_severity severity, V2X_CFGHANDLE root, const char* key,
                   const char* reason);

// Reports each key of the file that is not among the `count` known keys, with the most similar known key, and each
// value that should be a group. In a known key, a '#' at the end means a number from 0 to 255.
void v2xcfg_ReportUnknownKeys(v2xlog_tag_t* tag, V2X_CFGHANDLE root, const char* const* known, int32_t count);

// Reports the first setting of the file that is probably meant to be the known key `key`: another key, in any group,
// whose last name is the one of `key` or has it as the most similar known name. Returns true if there is one.
bool v2xcfg_RejectLookalike(v2xlog_tag_t* tag, V2X_CFGHANDLE root, const char* const* known, int32_t count,
                            const char* key);

// Calls `visit` with each collected problem in the order of the reports. This includes the failures of
// v2xcfg_InitContext and v2xcfg_GetNodeValue. If problems are omitted, the last one says so. `visit` must not call this
// library. Any thread.
using v2xcfg_problemFun = void (*)(void* arg, e_v2xcfg_severity severity, const char* text);
void v2xcfg_VisitProblems(v2xcfg_problemFun visit, void* arg);
