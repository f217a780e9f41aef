// Initializes the services and reads the wall clock.
#include <ctime>

#include "v2x/v2xpub.h"
#include "v2xpub_thread.h"

int32_t v2xpub_PubSubInit(void) {
    tzset();
    v2xpub_IsRealTimeAllowed();
    return 0;
}

uint64_t v2xpub_CommGetCurrentTime64(void) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1'000;
}

uint64_t v2xpub_GetMonotonicTime(void) {
    timespec now{};
    clock_gettime(CLOCK_MONOTONIC, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1'000;
}
