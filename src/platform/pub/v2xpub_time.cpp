#include <ctime>

#include "v2x/v2xpub.h"

uint64_t v2xpub_CommGetCurrentTime64(void) {
    timespec now{};
    clock_gettime(CLOCK_REALTIME, &now);
    return static_cast<uint64_t>(now.tv_sec) * 1'000'000 + static_cast<uint64_t>(now.tv_nsec) / 1'000;
}
