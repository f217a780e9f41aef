// The log of the codec library. The library only makes the lines: the program decides which lines it wants, and writes
// them. Until the program calls v2xcodec_setLog, the library logs nothing.
#pragma once

#include <stdbool.h>
#include <stdint.h>

#ifdef __cplusplus
extern "C" {
#endif

// Levels of the lines. A lower number is more important.
enum {
    V2XCODEC_LOG_ERROR = 2, // a call failed
    V2XCODEC_LOG_WARN = 3,  // a value is out of range
    V2XCODEC_LOG_DEBUG = 5, // steps of a call
};

// Callbacks of the program, both required. The tag is "UPER" (frames, positions) or "GBSM" (SPAT builder). A callback
// runs on the thread that called the library, so several threads may run it at once. The library holds no lock
// meanwhile. A callback must not throw, call longjmp or call the library.
typedef struct v2xcodec_log_t {
    // Returns true if the program wants the lines of this tag and level. The library formats no other lines.
    bool (*isEnabled)(const char* tag, int32_t level);
    // Receives one line. `file` (name without folders), `line` and `function` are the place in the library's source.
    // `text` has 1 to 255 bytes and no line end. `text` is valid only during the call; the other strings always are.
    void (*write)(const char* tag, int32_t level, const char* file, int32_t line, const char* function,
                  const char* text);
} v2xcodec_log_t;

// Sets the callbacks for the whole process; null switches the log off. The program keeps *log valid and unchanged until
// the process ends, because a call on another thread may still use it. Any thread may call this at any time.
void v2xcodec_setLog(const v2xcodec_log_t* log);

#ifdef __cplusplus
}
#endif
