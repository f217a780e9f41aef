#include "allocations.h"

#include <atomic>
#include <cstdlib>
#include <new>

namespace {
std::atomic<size_t> g_count{0};
}

size_t countAllocations() {
    return g_count.load(std::memory_order_relaxed);
}

void* operator new(size_t size) {
    g_count.fetch_add(1, std::memory_order_relaxed);
    void* memory = malloc(size);
    if (memory == nullptr) {
        throw std::bad_alloc();
    }
    return memory;
}

void operator delete(void* memory) noexcept {
    free(memory);
}

void operator delete(void* memory, size_t /*size*/) noexcept {
    free(memory);
}
