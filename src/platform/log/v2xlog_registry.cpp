// Tag registry: a fixed array in the order of registration. Look-ups need no lock: a slot is complete before the count
// includes the slot, and the name of a slot never changes.
#include "v2x/v2xlog.h"

#include <array>
#include <cstring>
#include <mutex>

namespace {

constinit std::array<v2xlog_tagSlot, V2XLOG_MAX_TAGS> g_slots{};
constinit std::atomic<int32_t> g_count{0};
constinit std::mutex g_addMutex;

bool IsValidLevel(int32_t level) {
    return level >= V2XLOG_UNDO && level <= V2XLOG_TRACE;
}

// Returns the slot with the name `name`, or null. A received name may have no NUL in its eight bytes. Such a name
// matches no slot, because a stored name always contains a NUL.
v2xlog_tagSlot* FindSlot(const char* name) {
    const int32_t count = g_count.load(std::memory_order_acquire);
    for (int32_t i = 0; i < count; ++i) {
        v2xlog_tagSlot& slot = g_slots[static_cast<size_t>(i)];
        if (std::strncmp(slot.name, name, V2XLOG_NAME_SIZE) == 0) {
            return &slot;
        }
    }
    return nullptr;
}

} // namespace

int32_t v2xlog_AddTag(const char* name, V2X_LOGHANDLE* handle) {
    if (name == nullptr || handle == nullptr) {
        return -2;
    }
    const size_t length = strnlen(name, V2XLOG_NAME_SIZE);
    if (length == 0 || length == V2XLOG_NAME_SIZE) {
        return -2;
    }
    const std::lock_guard lock(g_addMutex);
    v2xlog_tagSlot* slot = FindSlot(name);
    if (slot == nullptr) {
        const int32_t count = g_count.load(std::memory_order_relaxed);
        if (count == V2XLOG_MAX_TAGS) {
            return -3;
        }
        slot = &g_slots[static_cast<size_t>(count)];
        std::memcpy(slot->name, name, length);
        slot->level.store(V2XLOG_INFO, std::memory_order_relaxed);
        g_count.store(count + 1, std::memory_order_release);
    }
    *handle = slot;
    return 0;
}

int32_t v2xlog_GetTagHandle(const char* name, V2X_LOGHANDLE* handle) {
    if (name == nullptr || handle == nullptr) {
        return -2;
    }
    v2xlog_tagSlot* const slot = FindSlot(name);
    if (slot == nullptr) {
        return -3;
    }
    *handle = slot;
    return 0;
}

int32_t v2xlog_SetTagLevel(V2X_LOGHANDLE handle, int32_t level) {
    if (handle == nullptr) {
        return -2;
    }
    if (!IsValidLevel(level)) {
        return -3;
    }
    handle->level.store(level, std::memory_order_relaxed);
    return 0;
}

int32_t v2xlog_SetAllTagLevel(int32_t level) {
    if (!IsValidLevel(level)) {
        return -3;
    }
    const int32_t count = g_count.load(std::memory_order_acquire);
    for (int32_t i = 0; i < count; ++i) {
        g_slots[static_cast<size_t>(i)].level.store(level, std::memory_order_relaxed);
    }
    return 0;
}

int32_t v2xlog_GetTagNum(void) {
    return g_count.load(std::memory_order_acquire);
}

int32_t v2xlog_GetTagLevelByIndex(int32_t index, uint8_t* name, int16_t* level) {
    if (name == nullptr || level == nullptr) {
        return -2;
    }
    if (index < 0 || index >= v2xlog_GetTagNum()) {
        return -3;
    }
    const v2xlog_tagSlot& slot = g_slots[static_cast<size_t>(index)];
    std::memcpy(name, slot.name, V2XLOG_NAME_SIZE);
    *level = static_cast<int16_t>(slot.level.load(std::memory_order_relaxed));
    return 0;
}
