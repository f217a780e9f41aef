#include <cstring>
#include <ctime>

#include "v2x/v2xlog.h"
#include "v2x/v2xpub.h"
#include "v2xpub_thread.h"

namespace {

v2xlog_tag_t g_log{"TASK"};

// Only the attempt tells: capabilities, limits and control groups all have a say.
bool TryRealTime() {
    pthread_t thread{};
    const v2xpub_scheduling lowest{SCHED_RR, 1};
    const int error = v2xpub_CreateThread(
        &thread, lowest, [](void*) -> void* { return nullptr; }, nullptr);
    if (error == 0) {
        pthread_join(thread, nullptr);
        return true;
    }
    V2XLOG(g_log, V2XLOG_WARN, "no real-time scheduling (%s): all tasks run with ordinary scheduling",
           std::strerror(error));
    return false;
}

} // namespace

bool v2xpub_RealTimeAllowed() {
    static const bool allowed = TryRealTime();
    return allowed;
}

int32_t v2xpub_PubSubInit(void) {
    tzset();
    v2xpub_RealTimeAllowed();
    return 0;
}
