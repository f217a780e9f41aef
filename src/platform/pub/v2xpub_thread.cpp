#include "v2xpub_thread.h"

#include <cerrno>
#include <csignal>

#include "v2x/v2xlog.h"

namespace {

constexpr size_t STACK_SIZE = size_t{512} * 1024;

v2xlog_tag_t g_log{"TASK"};

// Blocks SIGINT, SIGQUIT and SIGTERM in the calling thread while the object exists. Threads that the calling thread
// creates during this time inherit the signal mask and never receive these signals.
class StopSignalBlocker {
public:
    StopSignalBlocker() {
        sigset_t stop;
        sigemptyset(&stop);
        for (const int number : {SIGINT, SIGQUIT, SIGTERM}) {
            sigaddset(&stop, number);
        }
        pthread_sigmask(SIG_BLOCK, &stop, &m_previousMask);
    }
    ~StopSignalBlocker() { pthread_sigmask(SIG_SETMASK, &m_previousMask, nullptr); }
    StopSignalBlocker(const StopSignalBlocker&) = delete;
    StopSignalBlocker& operator=(const StopSignalBlocker&) = delete;

private:
    sigset_t m_previousMask{};
};

// Creates a thread with the given policy and priority. Returns 0 or the error number of pthread_create.
int CreateThread(pthread_t* thread, const v2xpub_scheduling& scheduling, void* (*routine)(void*), void* arg) {
    pthread_attr_t attributes;
    pthread_attr_init(&attributes);
    sched_param parameter{};
    parameter.sched_priority = scheduling.priority;
    pthread_attr_setstacksize(&attributes, STACK_SIZE);
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&attributes, scheduling.policy);
    pthread_attr_setschedparam(&attributes, &parameter);
    const StopSignalBlocker blocker;
    const int error = pthread_create(thread, &attributes, routine, arg);
    pthread_attr_destroy(&attributes);
    return error;
}

// Creates a real-time thread to find out whether the process may use real-time scheduling. The answer depends on
// capabilities, limits and control groups together.
bool TryRealTime() {
    pthread_t thread{};
    const v2xpub_scheduling lowest{SCHED_RR, 1};
    const auto placeholder = [](void*) -> void* { return nullptr; };
    const int error = CreateThread(&thread, lowest, placeholder, nullptr);
    if (error == 0) {
        pthread_join(thread, nullptr);
        return true;
    }
    V2XLOG(g_log, V2XLOG_WARN, "cannot use real-time scheduling: %s; all tasks run with ordinary scheduling",
           std::strerror(error));
    return false;
}

} // namespace

bool v2xpub_IsRealTimeAllowed() {
    static const bool isAllowed = TryRealTime();
    return isAllowed;
}

int v2xpub_StartThread(pthread_t* thread, const char* name, const v2xpub_scheduling& scheduling,
                       void* (*routine)(void*), void* arg) {
    if (scheduling.policy != SCHED_OTHER && v2xpub_IsRealTimeAllowed()) {
        const int error = CreateThread(thread, scheduling, routine, arg);
        if (error != EPERM) {
            return error;
        }
        V2XLOG(g_log, V2XLOG_WARN, "cannot start thread %s at real-time priority %d; it runs with ordinary scheduling",
               name, scheduling.priority);
    }
    return CreateThread(thread, v2xpub_scheduling{}, routine, arg);
}

void v2xpub_NameThread(const std::string& name) {
    constexpr size_t NAME_MAX_LENGTH = 15; // the kernel rejects longer names
    pthread_setname_np(pthread_self(), name.substr(0, NAME_MAX_LENGTH).c_str());
}
