#include "v2xpub_thread.h"

#include <cerrno>
#include <csignal>

#include "v2x/v2xlog.h"

namespace {

constexpr size_t STACK_SIZE = size_t{512} * 1024;

v2xlog_tag_t g_log{"TASK"};

// Blocks the stop signals in the calling thread during its lifetime. A new thread inherits the mask of its creator, so
// it never receives such a signal, not even before its first instruction.
class StopSignalsBlocked {
public:
    StopSignalsBlocked() {
        sigset_t stop;
        sigemptyset(&stop);
        for (const int number : {SIGINT, SIGQUIT, SIGTERM}) {
            sigaddset(&stop, number);
        }
        pthread_sigmask(SIG_BLOCK, &stop, &m_before);
    }
    ~StopSignalsBlocked() { pthread_sigmask(SIG_SETMASK, &m_before, nullptr); }
    StopSignalsBlocked(const StopSignalsBlocked&) = delete;
    StopSignalsBlocked& operator=(const StopSignalsBlocked&) = delete;

private:
    sigset_t m_before{};
};

// pthread_create with exactly this scheduling. Returns 0 or the error number.
int CreateThread(pthread_t* thread, const v2xpub_scheduling& scheduling, void* (*routine)(void*), void* arg) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    sched_param parameter{};
    parameter.sched_priority = scheduling.priority;
    pthread_attr_setstacksize(&attributes, STACK_SIZE);
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&attributes, scheduling.policy);
    pthread_attr_setschedparam(&attributes, &parameter);
    const StopSignalsBlocked blocked;
    const int error = pthread_create(thread, &attributes, routine, arg);
    pthread_attr_destroy(&attributes);
    return error;
}

// Only an attempt shows the result of capabilities, limits and control groups together.
bool TryRealTime() {
    pthread_t thread{};
    const v2xpub_scheduling lowest{SCHED_RR, 1};
    const auto nothing = [](void*) -> void* { return nullptr; };
    const int error = CreateThread(&thread, lowest, nothing, nullptr);
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

int v2xpub_StartThread(pthread_t* thread, const char* name, const v2xpub_scheduling& scheduling,
                       void* (*routine)(void*), void* arg) {
    if (scheduling.policy != SCHED_OTHER && v2xpub_RealTimeAllowed()) {
        const int error = CreateThread(thread, scheduling, routine, arg);
        if (error != EPERM) {
            return error;
        }
        V2XLOG(g_log, V2XLOG_WARN, "%s: real-time priority %d refused, ordinary scheduling instead", name,
               scheduling.priority);
    }
    return CreateThread(thread, v2xpub_scheduling{}, routine, arg);
}

void v2xpub_NameThread(const std::string& name) {
    constexpr size_t KERNEL_NAME = 15;
    pthread_setname_np(pthread_self(), name.substr(0, KERNEL_NAME).c_str());
}
