// Helpers that the codec's source files share. Not installed.
#pragma once

#include <cstdint>
#include <cstdlib>
#include <new>

#include "v2x/v2xlog.h"

// Returns `isValid`. If `isValid` is false, logs `message` at V2XLOG_ERROR with the name of the calling function. Any
// thread.
inline bool v2xapp_Check(v2xlog_tag_t& tag, bool isValid, const char* message,
                         const char* function = __builtin_FUNCTION()) {
    if (!isValid && v2xlog_Enabled(tag, V2XLOG_ERROR)) {
        static constinit v2xlog_site site{__FILE_NAME__, __LINE__};
        v2xlog_Format(v2xlog_Handle(tag), V2XLOG_ERROR, 1, site, function, "%s", message);
    }
    return isValid;
}

// Allocates `count` zeroed structures with calloc, because the message set's runtime frees its structures with free().
// Throws std::bad_alloc. Any thread.
template <typename T>
T* v2xapp_New(size_t count = 1) {
    auto* structures = static_cast<T*>(std::calloc(count, sizeof(T)));
    if (structures == nullptr) {
        throw std::bad_alloc();
    }
    return structures;
}
