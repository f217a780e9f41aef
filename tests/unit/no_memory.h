// Memory that runs out, for a test program whose calls to malloc, calloc and realloc the linker sends here: one that is
// made with NO_MEMORY and includes this.
#pragma once

#include <cstddef>

namespace no_memory {

// The n-th call from now on gets nothing; 0: none does.
struct Countdown {
    int left = 0;
    bool ends() { return left > 0 && --left == 0; }
};
inline Countdown calls; // of all three
inline Countdown callocs;
inline Countdown reallocs;

} // namespace no_memory

extern "C" {
void* realMalloc(size_t size) __asm__("__real_malloc");
void* realCalloc(size_t count, size_t size) __asm__("__real_calloc");
void* realRealloc(void* memory, size_t size) __asm__("__real_realloc");
void* wrapMalloc(size_t size) __asm__("__wrap_malloc");
void* wrapCalloc(size_t count, size_t size) __asm__("__wrap_calloc");
void* wrapRealloc(void* memory, size_t size) __asm__("__wrap_realloc");

[[gnu::used]] inline void* wrapMalloc(size_t size) {
    return no_memory::calls.ends() ? nullptr : realMalloc(size);
}

[[gnu::used]] inline void* wrapCalloc(size_t count, size_t size) {
    return no_memory::calls.ends() || no_memory::callocs.ends() ? nullptr : realCalloc(count, size);
}

[[gnu::used]] inline void* wrapRealloc(void* memory, size_t size) {
    return no_memory::calls.ends() || no_memory::reallocs.ends() ? nullptr : realRealloc(memory, size);
}
}
