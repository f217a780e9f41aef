// What the SPAT builder's operations do alike: making structures, and optional numbers, which are pointers in the
// message set's types. All memory is zeroed and malloc's. Any thread, one structure on one thread at a time.
#pragma once

#include <cstdint>
#include <cstdlib>

#include "v2x/v2xlog.h"

// A new structure, null without memory.
template <typename T>
T* v2xapp_ElementNew() {
    return static_cast<T*>(std::calloc(1, sizeof(T)));
}

// A new structure at *handle, the caller's. Returns 0; -1 for a null place, -2 without memory, both logged.
template <typename T>
int32_t v2xapp_ElementInit(v2xlog_tag_t& tag, void** handle) {
    if (handle == nullptr) {
        V2XLOG(tag, V2XLOG_ERROR, "input err");
        return -1;
    }
    T* structure = v2xapp_ElementNew<T>();
    if (structure == nullptr) {
        V2XLOG(tag, V2XLOG_ERROR, "calloc section err");
        return -2;
    }
    *handle = structure;
    return 0;
}

// Stores the number, in new memory when the member is absent. Returns 0; -3 without memory, logged.
inline int32_t v2xapp_ElementSet(v2xlog_tag_t& tag, long*& member, long value) {
    if (member == nullptr) {
        member = v2xapp_ElementNew<long>();
    }
    if (member == nullptr) {
        V2XLOG(tag, V2XLOG_ERROR, "calloc err");
        return -3;
    }
    *member = value;
    return 0;
}

inline void v2xapp_ElementAbsent(long*& member) {
    std::free(member);
    member = nullptr;
}
