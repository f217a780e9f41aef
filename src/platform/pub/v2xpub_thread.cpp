#include "v2xpub_thread.h"

#include <cerrno>
#include <csignal>
#include <ctime>

#include "v2x/v2xlog.h"

namespace {

constexpr size_t STACK_SIZE = size_t{512} * 1024;
constexpr int CREATE_TRIES = 10;
constexpr timespec CREATE_PAUSE{0, 20'000'000};

v2xlog_tag_t g_log{"TASK"};

// Blocks the stop signals in the calling thread while it lives. A thread inherits the mask of its creator, so one that
// is created meanwhile never takes such a signal, not even before its first instruction.
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

} // namespace

int v2xpub_CreateThread(pthread_t* thread, const v2xpub_scheduling& scheduling, void* (*routine)(void*), void* arg) {
    pthread_attr_t attributes;
    int error = pthread_attr_init(&attributes);
    if (error != 0) {
        return error;
    }
    sched_param parameter{};
    parameter.sched_priority = scheduling.priority;
    pthread_attr_setstacksize(&attributes, STACK_SIZE);
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&attributes, scheduling.policy);
    pthread_attr_setschedparam(&attributes, &parameter);
    {
        const StopSignalsBlocked blocked;
        error = pthread_create(thread, &attributes, routine, arg);
        for (int tries = 1; error == EAGAIN && tries < CREATE_TRIES; tries++) { // no memory, or too many threads
            nanosleep(&CREATE_PAUSE, nullptr);
            error = pthread_create(thread, &attributes, routine, arg);
        }
    }
    pthread_attr_destroy(&attributes);
    return error;
}

int v2xpub_StartThread(pthread_t* thread, const char* name, const v2xpub_scheduling& scheduling,
                       void* (*routine)(void*), void* arg) {
    if (scheduling.policy != SCHED_OTHER && v2xpub_RealTimeAllowed()) {
        const int error = v2xpub_CreateThread(thread, scheduling, routine, arg);
        if (error != EPERM) {
            return error;
        }
        V2XLOG(g_log, V2XLOG_WARN, "%s: real-time priority %d refused, ordinary scheduling instead", name,
               scheduling.priority);
    }
    return v2xpub_CreateThread(thread, v2xpub_scheduling{}, routine, arg);
}

void v2xpub_NameThread(const std::string& name) {
    constexpr size_t KERNEL_NAME = 15;
    pthread_setname_np(pthread_self(), name.substr(0, KERNEL_NAME).c_str());
}
