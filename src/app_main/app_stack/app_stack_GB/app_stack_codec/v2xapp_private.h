// Helpers that the codec's source files share. Not installed.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "v2xapp_log.h"

// Returns the program's callbacks if it wants the lines of this tag and level, else null. Any thread.
const v2xcodec_log_t* v2xapp_FindLog(const char* tag, int32_t level);

// Formats a line and passes it to the program. Any thread.
__attribute__((format(printf, 7, 8))) void v2xapp_Write(const v2xcodec_log_t& log, const char* tag, int32_t level,
                                                        const char* file, int32_t line, const char* function,
                                                        const char* format, ...);

// V2XAPP_LOG(tag, level, printf format, ...) logs a line. The arguments are evaluated only if the line is wanted.
#define V2XAPP_LOG(tag, level, ...)                                                                                    \
    do {                                                                                                               \
        if (const v2xcodec_log_t* v2xappLog = v2xapp_FindLog(tag, level)) {                                            \
            v2xapp_Write(*v2xappLog, tag, level, __FILE_NAME__, __LINE__, __func__, __VA_ARGS__);                      \
        }                                                                                                              \
    } while (false)

// Returns `isValid`. If `isValid` is false, logs `message` as an error with the name of the calling function. Any
// thread.
inline bool v2xapp_Check(const char* tag, bool isValid, const char* message,
                         const char* function = __builtin_FUNCTION()) {
    const v2xcodec_log_t* log = isValid ? nullptr : v2xapp_FindLog(tag, V2XCODEC_LOG_ERROR);
    if (log != nullptr) {
        v2xapp_Write(*log, tag, V2XCODEC_LOG_ERROR, __FILE_NAME__, __LINE__, function, "%s", message);
    }
    return isValid;
}

// Allocates `count` zeroed structures with calloc, because the message set's runtime frees its structures with free().
// Ends the process with abort() if memory runs out. Any thread.
template <typename T>
T* v2xapp_New(size_t count = 1) {
    auto* structures = static_cast<T*>(std::calloc(count, sizeof(T)));
    if (structures == nullptr) {
        std::abort();
    }
    return structures;
}
