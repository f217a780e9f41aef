#include "heap_calls.h"

#include <cstdlib>

namespace {
thread_local size_t g_count = 0;
}

size_t countHeapCalls() {
    return g_count;
}

// The linker option --wrap redirects each call of malloc to __wrap_malloc and names the original __real_malloc.
extern "C" {
void* __real_malloc(size_t size);
void* __real_calloc(size_t count, size_t size);
void* __real_realloc(void* memory, size_t size);

void* __wrap_malloc(size_t size) {
    g_count++;
    return __real_malloc(size);
}

void* __wrap_calloc(size_t count, size_t size) {
    g_count++;
    return __real_calloc(count, size);
}

void* __wrap_realloc(void* memory, size_t size) {
    g_count++;
    return __real_realloc(memory, size);
}
}
