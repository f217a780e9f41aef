// Threads of this library: small stack, the stop signals left to the main thread, a name, a scheduling class.
#pragma once

#include <pthread.h>
#include <sched.h>

#include <cstdint>
#include <cstring>
#include <string>

struct v2xpub_scheduling {
    int policy = SCHED_OTHER;
    int priority = 0;
};

// Starts a joinable thread with a stack of 512 KiB and SIGINT, SIGQUIT and SIGTERM blocked. A real-time class that the
// process may not have becomes ordinary scheduling, with a warning that names the thread unless the process has been
// warned as a whole. Returns 0 or the error number.
int v2xpub_StartThread(pthread_t* thread, const char* name, const v2xpub_scheduling& scheduling,
                       void* (*routine)(void*), void* arg);

// pthread_create with exactly this scheduling. Returns 0 or the error number.
int v2xpub_CreateThread(pthread_t* thread, const v2xpub_scheduling& scheduling, void* (*routine)(void*), void* arg);

// Names the calling thread by the first 15 characters, all that the kernel takes.
void v2xpub_NameThread(const std::string& name);

// Whether the process may use real-time scheduling at all: tried once, one warning when it may not.
bool v2xpub_RealTimeAllowed();

// The text of a character field whose filler may have forgotten the NUL.
template <size_t N>
std::string v2xpub_FieldText(const char (&field)[N]) {
    return {field, strnlen(field, N)};
}
